#pragma once

#include "corvane/frame.h"
#include "corvane/socket.h"

#include <optional>
#include <span>
#include <vector>

namespace corvane {

// One complete frame in a receive buffer; valid until the buffer is filled again.
struct Frame {
  FrameHeader header;
  std::span<unsigned char> bytes;  // header and payload as they came

  std::span<const unsigned char> payload() const { return bytes.subspan(kFrameHeaderSize); }
};

// Turns a socket's byte stream into frames: one large receive may yield many of them, and frames that arrived together
// stand one behind the other in the buffer. Used by one thread at a time.
class FrameReader {
 public:
  enum class Fill { kData, kTimedOut, kClosed };

  // Receives once. Frames got before become invalid. Throws CS_Exception when the socket fails.
  Fill fill(Socket& socket, std::optional<Deadline> deadline);
  // The next complete frame that was received; nothing when more must be received first. Throws CS_Exception when the
  // bytes are no frame.
  std::optional<Frame> next();
  // True when the stream stands between two frames.
  bool isBetweenFrames() const { return m_from == m_to; }

  // The buffer starts small, for a caller that gets short replies, and grows when a receive fills it.
  static constexpr std::size_t kFirstSize = 16 * 1024;
  static constexpr std::size_t kLargestSize = 256 * 1024;

 private:
  std::vector<unsigned char> m_buffer;
  std::size_t m_from = 0;
  std::size_t m_to = 0;
};

}  // namespace corvane
