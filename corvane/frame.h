#pragma once

#include "corvane/limits.h"

#include <array>
#include <cstdint>
#include <span>

// The unit of the wire: a header of 20 bytes, little-endian, and up to 64 KiB of payload. docs/protocol.md shows it as
// a table.
namespace corvane {

enum class FrameKind : std::uint8_t {
  kHello = 1,    // the dialing side's first frame; number is the protocol version
  kWelcome = 2,  // the serving side's answer
  kCreate = 3,   // a component of the named class is wanted under that identifier
  kRequest = 4,  // part of a request to a component
  kReply = 5,    // part of the reply to the request with that correlation
  kFailure = 6,  // the request with that correlation cannot be served; the payload says why
  kRelease = 7,  // the component has ended; the payload says why
  kProof = 8,    // the dialing side's second frame where it has a key: that it has it
  kBeat = 9,     // a sign of life, where the greeting has agreed on it
};

inline constexpr std::uint8_t kFlagMore = 1;        // further frames of the same request or reply follow
inline constexpr std::uint8_t kFlagWantsReply = 2;  // the sender waits for a reply

inline constexpr std::uint16_t kProtocolVersion = 1;

struct FrameHeader {
  std::uint32_t length = 0;  // bytes of payload
  FrameKind kind = FrameKind::kRequest;
  std::uint8_t flags = 0;
  std::uint16_t number = 0;       // the request number, or the protocol version in a handshake
  std::uint32_t bridge = 0;       // identifier of the bridge that the component stands on, 0 for the connection
  std::uint32_t component = 0;    // identifier of the component, on its bridge
  std::uint32_t correlation = 0;  // identifies a request and its reply on this connection

  bool hasMore() const { return (flags & kFlagMore) != 0; }
  bool wantsReply() const { return (flags & kFlagWantsReply) != 0; }
};

inline constexpr std::size_t kFrameHeaderSize = 20;
inline constexpr std::size_t kFrameBridgeOffset = 8;  // where a router puts the other side's identifier

using EncodedHeader = std::array<unsigned char, kFrameHeaderSize>;

EncodedHeader encodeHeader(const FrameHeader& header);
// Throws CS_Exception (3105) for a kind that does not exist and (3107) for a payload past the bound.
FrameHeader decodeHeader(std::span<const unsigned char, kFrameHeaderSize> bytes);

void storeLittleEndian32(unsigned char* at, std::uint32_t value);
std::uint32_t loadLittleEndian32(const unsigned char* at);

}  // namespace corvane
