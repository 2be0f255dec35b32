#include "corvane/frame_reader.h"

#include <algorithm>
#include <cstring>

namespace corvane {

FrameReader::Fill FrameReader::fill(Socket& socket, std::optional<Deadline> deadline) {
  if (m_from > 0) {
    std::memmove(m_buffer.data(), m_buffer.data() + m_from, m_to - m_from);
    m_to -= m_from;
    m_from = 0;
  }
  if (m_buffer.empty()) m_buffer.resize(kFirstSize);
  // Only here: frames that were handed out point into the buffer.
  if (m_to == m_buffer.size()) m_buffer.resize(std::min(2 * m_buffer.size(), kLargestSize));
  const auto received = socket.receive(std::span(m_buffer).subspan(m_to), deadline);
  if (!received) return Fill::kTimedOut;
  if (*received == 0) return Fill::kClosed;
  m_to += *received;
  return Fill::kData;
}

std::optional<Frame> FrameReader::next() {
  static_assert(kLargestSize >= 2 * (kMaxFramePayload + kFrameHeaderSize), "a whole frame must fit behind another");
  if (m_to - m_from < kFrameHeaderSize) return std::nullopt;
  const std::span<unsigned char> available(m_buffer.data() + m_from, m_to - m_from);
  const FrameHeader header = decodeHeader(available.first<kFrameHeaderSize>());
  const std::size_t whole = kFrameHeaderSize + header.length;
  if (available.size() < whole) return std::nullopt;
  m_from += whole;
  return Frame{header, available.first(whole)};
}

}  // namespace corvane
