#include "bench/raw_peer.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>

namespace bench {

using corvane::Socket;

void sendAll(Socket& socket, std::span<const unsigned char> bytes) {
  const Socket::Piece pieces[] = {bytes};
  socket.send(pieces);
}

void receiveAll(Socket& socket, std::span<unsigned char> bytes) {
  while (!bytes.empty()) {
    const std::size_t got = *socket.receive(bytes, std::nullopt);
    if (got == 0) throw CS_Exception(corvane::kConnectionLost, nullptr);
    bytes = bytes.subspan(got);
  }
}

void streamRaw(std::uint16_t relay, std::span<const unsigned char> piece, std::uint64_t total) {
  Socket socket = Socket::connect("localhost", relay, false);
  unsigned char head[9] = {kStream};
  corvane::storeLittleEndian32(head + 1, static_cast<std::uint32_t>(total));
  corvane::storeLittleEndian32(head + 5, static_cast<std::uint32_t>(total >> 32));
  sendAll(socket, head);
  for (std::uint64_t left = total; left > 0;) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size()));
    sendAll(socket, piece.first(size));
    left -= size;
  }
  unsigned char done = 0;
  receiveAll(socket, {&done, 1});
}

void runRawCommand(std::uint16_t relay) {
  Socket socket = Socket::connect("localhost", relay, false);
  unsigned char word = kCommand;
  sendAll(socket, {&word, 1});
  receiveAll(socket, {&word, 1});
  if (word != 1) throw CS_Exception(corvane::kRequestRefused, L"the raw command has failed");
}

RawPings::RawPings(std::uint16_t relay) : m_socket(Socket::connect("localhost", relay, false)) {}

// The connection's first byte goes with the first ping: it is no send of its own.
void RawPings::ask(unsigned char who) {
  std::array<unsigned char, 1 + kPingBytes> bytes = {kPings, who};
  sendAll(m_socket, std::span(bytes).subspan(m_isFirst ? 0 : 1));
  m_isFirst = false;
  receiveAll(m_socket, std::span(bytes).first(kPingBytes));
}

int runMeasurements(const std::function<void()>& measure) try {
  measure();
  return 0;
} catch (const CS_Exception& failure) {
  std::fprintf(stderr, "bench: %s\n", corvane::toUtf8(failure.detail()).c_str());
  return 1;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "bench: %s\n", failure.what());
  return 1;
}

}  // namespace bench
