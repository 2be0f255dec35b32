#pragma once

#include "corvane/wire/value_reader.h"
#include "protocol/values.h"

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// The bytes of a message on the wire.
namespace tests {

template <class Message>
std::vector<unsigned char> bytesOf(const Message& message) {
  corvane::ValueWriter writer;
  write(writer, message);
  std::vector<unsigned char> bytes;
  writer.forEachPiece(
      [&](corvane::ValueWriter::Piece piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

// Two digits for each byte.
template <class Message>
std::string hexOf(const Message& message) {
  std::string hex;
  for (const unsigned char byte : bytesOf(message)) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    hex += digits;
  }
  return hex;
}

// The digits, which may have blanks between them.
inline std::string hex(std::string digits) {
  std::erase(digits, ' ');
  return digits;
}

inline corvane::ValueReader readerOf(std::vector<unsigned char> bytes) {
  return corvane::ValueReader(std::move(bytes));
}

// What the other side reads, which has to be all that there is.
template <class Message>
Message readBack(const Message& message, Message back = {}) {
  corvane::ValueReader reader = readerOf(bytesOf(message));
  protocol::Reader wire(reader);
  wire(back);
  if (!reader.atEnd()) throw std::runtime_error("a message is not read to its end");
  return back;
}

}  // namespace tests
