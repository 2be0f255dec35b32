#include "corvane/wire/frame.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>
#include <cstring>

namespace corvane {

void storeLittleEndian32(unsigned char* at, std::uint32_t value) {
  for (int i = 0; i < 4; ++i)
    at[i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint32_t loadLittleEndian32(const unsigned char* at) {
  return at[0] | static_cast<std::uint32_t>(at[1]) << 8 | static_cast<std::uint32_t>(at[2]) << 16 |
         static_cast<std::uint32_t>(at[3]) << 24;
}

EncodedHeader encodeHeader(const FrameHeader& header) {
  EncodedHeader bytes{};
  storeLittleEndian32(&bytes[0], header.length);
  bytes[4] = static_cast<unsigned char>(header.kind);
  bytes[5] = header.flags;
  bytes[6] = static_cast<unsigned char>(header.number);
  bytes[7] = static_cast<unsigned char>(header.number >> 8);
  storeLittleEndian32(&bytes[kFrameBridgeOffset], header.bridge);
  storeLittleEndian32(&bytes[12], header.component);
  storeLittleEndian32(&bytes[16], header.correlation);
  return bytes;
}

FrameHeader decodeHeader(std::span<const unsigned char, kFrameHeaderSize> bytes) {
  FrameHeader header;
  header.length = loadLittleEndian32(&bytes[0]);
  // The beginning of a TLS handshake (RFC 8446, 5.1), as a header longer than any frame.
  if (bytes[0] == 0x16 && bytes[1] == 0x03 && bytes[2] != 0) {
    throw CS_Exception(kProtocolViolation, L"what came is TLS, which another port is for");
  }
  if (bytes[4] < static_cast<unsigned char>(FrameKind::kHello) ||
      bytes[4] > static_cast<unsigned char>(FrameKind::kPacked)) {
    throw CS_Exception(kProtocolViolation, L"frame kind %d does not exist", static_cast<int>(bytes[4]));
  }
  if (header.length > kMaxFramePayload) {
    throw CS_Exception(kLimitExceeded, L"a frame of %u bytes, the limit is %u", header.length,
                       static_cast<unsigned>(kMaxFramePayload));
  }
  header.kind = static_cast<FrameKind>(bytes[4]);
  header.flags = bytes[5];
  header.number = static_cast<std::uint16_t>(bytes[6] | bytes[7] << 8);
  header.bridge = loadLittleEndian32(&bytes[kFrameBridgeOffset]);
  header.component = loadLittleEndian32(&bytes[12]);
  header.correlation = loadLittleEndian32(&bytes[16]);
  return header;
}

void FrameReader::moveToFront() {
  if (m_from == 0) return;
  std::memmove(m_buffer.data(), m_buffer.data() + m_from, m_to - m_from);
  m_to -= m_from;
  m_from = 0;
}

std::span<unsigned char> FrameReader::room() {
  const std::size_t held = m_to - m_from;
  if (held >= kLargestMove) {
    const std::size_t whole = kFrameHeaderSize + loadLittleEndian32(&m_buffer[m_from]);
    const std::size_t end = m_from + whole + kBehind;
    if (held < whole && end <= m_buffer.size()) return std::span(m_buffer).subspan(m_to, end - m_to);
  }
  moveToFront();
  if (m_buffer.empty()) m_buffer.resize(kFirstSize);
  // Only here: frames that were handed out point into the buffer.
  if (m_to == m_buffer.size()) m_buffer.resize(m_buffer.size() < kSecondSize ? kSecondSize : kLargestSize);
  return std::span(m_buffer).subspan(m_to);
}

FrameReader::Fill FrameReader::fill(Stream& stream, std::optional<Deadline> deadline) {
  const auto received = stream.receive(room(), deadline);
  if (!received) return Fill::kTimedOut;
  if (*received == 0) return Fill::kClosed;
  m_to += *received;
  return Fill::kData;
}

std::optional<Frame> FrameReader::next(std::optional<FrameKind> only) {
  static_assert(kLargestSize >= 2 * (kMaxFramePayload + kFrameHeaderSize), "a whole frame must fit behind another");
  if (m_to - m_from < kFrameHeaderSize) return std::nullopt;
  const std::span<unsigned char> available(m_buffer.data() + m_from, m_to - m_from);
  const FrameHeader header = decodeHeader(available.first<kFrameHeaderSize>());
  const std::size_t whole = kFrameHeaderSize + header.length;
  if (available.size() < whole || (only && header.kind != *only)) return std::nullopt;
  m_from += whole;
  return Frame{header, available.first(whole)};
}

void FrameReader::letGo() {
  if (!isBetweenFrames()) return;
  std::vector<unsigned char>().swap(m_buffer);  // an assigned {} keeps the memory
  m_from = m_to = 0;
}

}  // namespace corvane
