#pragma once

#include "corvane/wire/frame.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fuzz {

// One frame of a script and the peer that sends it.
struct Step {
  unsigned peer = 0;
  bool endsReceive = false;  // whatever follows arrives with a receive of its own
  corvane::Frame frame;
};

// Arbitrary bytes as a sequence of whole frames of several peers, in a form in which a change of one byte changes one
// thing. Each step is nine bytes and its payload:
//
//   peer, kind, flags, number, bridge, component, correlation, length of the payload (2 bytes)
//
// The highest bit of the peer says that the receive ends there. The kind counts modulo those that exist, and a payload
// ends with the input at the latest. The frames of a script stand one behind the other, as received ones do.
class FrameScript {
 public:
  explicit FrameScript(std::span<const unsigned char> input) {
    m_bytes.reserve(input.size() + (1 + input.size() / kStepSize) * corvane::kFrameHeaderSize);
    while (input.size() >= kStepSize)
      input = addStep(input);
  }

  std::vector<Step>& steps() { return m_steps; }

  static constexpr std::size_t kStepSize = 9;

 private:
  // Returns the bytes behind the step.
  std::span<const unsigned char> addStep(std::span<const unsigned char> input) {
    constexpr unsigned kKinds = static_cast<unsigned>(corvane::FrameKind::kProof);
    const std::size_t wanted = input[7] | static_cast<std::size_t>(input[8]) << 8;
    const auto payload = input.subspan(kStepSize, std::min(wanted, input.size() - kStepSize));
    corvane::FrameHeader header;
    header.length = static_cast<std::uint32_t>(payload.size());
    header.kind = static_cast<corvane::FrameKind>(1 + (input[1] - 1u) % kKinds);
    header.flags = input[2];
    header.number = input[3];
    header.bridge = input[4];
    header.component = input[5];
    header.correlation = input[6];
    const corvane::EncodedHeader encoded = corvane::encodeHeader(header);
    const std::size_t at = m_bytes.size();
    m_bytes.insert(m_bytes.end(), encoded.begin(), encoded.end());
    m_bytes.insert(m_bytes.end(), payload.begin(), payload.end());
    m_steps.push_back({input[0] & 0x7Fu, (input[0] & 0x80) != 0, {header, std::span(m_bytes).subspan(at)}});
    return input.subspan(kStepSize + payload.size());
  }

  std::vector<unsigned char> m_bytes;  // never grows past what it has reserved: the steps point into it
  std::vector<Step> m_steps;
};

}  // namespace fuzz
