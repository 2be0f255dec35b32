#include "corvane/frame.h"

#include "corvane/exception.h"
#include "corvane/message_numbers.h"

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
  if (bytes[4] < static_cast<unsigned char>(FrameKind::kHello) ||
      bytes[4] > static_cast<unsigned char>(FrameKind::kBeat)) {
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

}  // namespace corvane
