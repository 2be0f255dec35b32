#pragma once

#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <span>

// What the raw yardstick does with a socket: one send for one buffer, and a wait until a buffer is full.

inline void sendAll(corvane::Socket& socket, std::span<const unsigned char> bytes) {
  const corvane::Socket::Piece pieces[] = {bytes};
  socket.send(pieces);
}

// Throws CS_Exception (3102) when the peer closes before that.
inline void receiveAll(corvane::Socket& socket, std::span<unsigned char> bytes) {
  while (!bytes.empty()) {
    const std::size_t got = *socket.receive(bytes, std::nullopt);
    if (got == 0) throw CS_Exception(corvane::kConnectionLost, nullptr);
    bytes = bytes.subspan(got);
  }
}
