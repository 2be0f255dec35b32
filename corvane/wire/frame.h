#pragma once

#include "corvane/base/limits.h"
#include "corvane/net/socket.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

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
  kBeat = 9,     // a sign of life, where the handshake has agreed on it, and what was taken (correlation)
  kPacked = 10,  // frames of a bridge, packed as the handshake has agreed
};

inline constexpr std::uint8_t kFlagMore = 1;        // further frames of the same request or reply follow
inline constexpr std::uint8_t kFlagWantsReply = 2;  // the sender waits for a reply
inline constexpr std::uint8_t kFlagBeginsAnew = 4;  // the packing needs nothing of what came before

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
  bool beginsAnew() const { return (flags & kFlagBeginsAnew) != 0; }
};

inline constexpr std::size_t kFrameHeaderSize = 20;
inline constexpr std::size_t kFrameBridgeOffset = 8;  // where a router puts the other side's identifier

using EncodedHeader = std::array<unsigned char, kFrameHeaderSize>;

EncodedHeader encodeHeader(const FrameHeader& header);
// Throws CS_Exception (3105) for a kind that does not exist and (3107) for a payload past the bound.
FrameHeader decodeHeader(std::span<const unsigned char, kFrameHeaderSize> bytes);

void storeLittleEndian32(unsigned char* at, std::uint32_t value);
std::uint32_t loadLittleEndian32(const unsigned char* at);

// One complete frame in a receive buffer; valid until the buffer is filled again.
struct Frame {
  FrameHeader header;
  std::span<unsigned char> bytes;  // header and payload as they came

  std::span<const unsigned char> payload() const { return bytes.subspan(kFrameHeaderSize); }
};

// Turns the bytes of a connection into frames: one large receive may yield many of them, and frames that arrived
// together stand one behind the other in the buffer. Used by one thread at a time.
class FrameReader {
 public:
  enum class Fill { kData, kTimedOut, kClosed };

  // Receives once. Frames got before become invalid. Throws CS_Exception when the stream fails.
  Fill fill(Stream& stream, std::optional<Deadline> deadline);
  // The next complete frame that was received; nothing when more must be received first. Throws CS_Exception when the
  // bytes are no frame. With a kind, a frame of another one stays where it is.
  std::optional<Frame> next(std::optional<FrameKind> only = std::nullopt);
  // Gives the buffer back where it holds nothing.
  void letGo();
  // True when the stream stands between two frames.
  bool isBetweenFrames() const { return m_from == m_to; }

  // The buffer starts small, for a caller that gets short replies, and grows when a receive fills it.
  static constexpr std::size_t kFirstSize = 2 * 1024;
  static constexpr std::size_t kSecondSize = 16 * 1024;
  static constexpr std::size_t kLargestSize = 264 * 1024;

 private:
  // More than that of a frame whose end has not come is not moved to the front to make room for much: its rest is
  // received and little behind it, such as a short last frame of the same request. Moving it would leave as much of the
  // next frame, and so on with each.
  static constexpr std::size_t kLargestMove = 16 * 1024;
  static constexpr std::size_t kBehind = 4 * 1024;

  void moveToFront();
  // Where the next bytes go.
  std::span<unsigned char> room();

  std::vector<unsigned char> m_buffer;
  std::size_t m_from = 0;
  std::size_t m_to = 0;
};

}  // namespace corvane
