#pragma once

#include "corvane/value_reader.h"

#include <string>
#include <utility>
#include <vector>

namespace corvane {

// The bytes of a request or reply that has arrived whole, owned by the source.
class ByteSource : public FrameSource {
 public:
  explicit ByteSource(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}
  bool next(std::span<const unsigned char>& payload) override {
    if (std::exchange(m_given, true)) return false;
    payload = m_bytes;
    return true;
  }

 private:
  std::vector<unsigned char> m_bytes;
  bool m_given = false;
};

// The bytes of a request that lie in somebody else's buffer, which outlives the source.
class SpanSource : public FrameSource {
 public:
  explicit SpanSource(std::span<const unsigned char> bytes) : m_bytes(bytes) {}
  bool next(std::span<const unsigned char>& payload) override {
    if (std::exchange(m_given, true)) return false;
    payload = m_bytes;
    return true;
  }

 private:
  std::span<const unsigned char> m_bytes;
  bool m_given = false;
};

// The one text that a frame carries; what it can make of it when that is no text.
std::wstring readText(std::span<const unsigned char> bytes);
// The same for the reason in a release or failure, which may be kept: its first kMaxReasonCharacters.
std::wstring readReason(std::span<const unsigned char> bytes);

}  // namespace corvane
