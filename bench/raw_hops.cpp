// The raw yardstick of the benchmarks: a relay and a sink on plain sockets, the same hops that a job takes.
//
//   raw_hops FILE
//
// prints "relay PORT" when both listen. The relay passes on what comes in either direction; the sink writes to FILE.
// Each connection begins with one byte that says what the sender wants:
//   's'  a stream: 8 bytes of length, then the data; the sink answers one byte when the last byte is in the file
//   'p'  ping: every 64 bytes are answered with 64 bytes

#include "bench/raw_socket.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/wire/frame.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <vector>

namespace {

using corvane::Socket;

void pump(Socket& from, Socket& to) {
  std::vector<unsigned char> buffer(256 * 1024);
  try {
    while (const std::size_t got = *from.receive(buffer, std::nullopt))
      sendAll(to, std::span(buffer).first(got));
  } catch (const CS_Exception&) {
  }
  to.shutdown();
}

void relay(Socket in, std::uint16_t sinkPort) {
  Socket out = Socket::connect("localhost", sinkPort, false);
  std::thread back([&] { pump(out, in); });
  pump(in, out);
  back.join();
}

void takeStream(Socket& socket, const char* path) {
  unsigned char size[8];
  receiveAll(socket, size);
  std::uint64_t left = corvane::loadLittleEndian32(size) | std::uint64_t{corvane::loadLittleEndian32(size + 4)} << 32;
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  std::vector<unsigned char> buffer(256 * 1024);
  while (left > 0) {
    const std::size_t got = *socket.receive(buffer, std::nullopt);
    if (got == 0) return;
    file.write(reinterpret_cast<const char*>(buffer.data()), static_cast<std::streamsize>(got));
    left -= got;
  }
  file.close();
  const unsigned char done[] = {1};
  sendAll(socket, done);
}

void sink(Socket socket, const char* path) {
  try {
    unsigned char wanted = 0;
    receiveAll(socket, {&wanted, 1});
    if (wanted == 's') return takeStream(socket, path);
    unsigned char ping[64];
    for (;;) {
      receiveAll(socket, ping);
      sendAll(socket, ping);
    }
  } catch (...) {
    // The sender has gone.
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: raw_hops FILE\n");
    return 2;
  }
  corvane::initializeNetwork();
  corvane::Listener sinkListener("127.0.0.1:0");
  corvane::Listener relayListener("127.0.0.1:0");
  std::printf("relay %d\n", static_cast<int>(relayListener.port()));
  std::fflush(stdout);
  std::thread sinks([&] {
    while (auto socket = sinkListener.accept())
      std::thread(sink, std::move(*socket), arguments[1]).detach();
  });
  while (auto socket = relayListener.accept())
    std::thread(relay, std::move(*socket), sinkListener.port()).detach();
  sinks.join();
}
