#pragma once

#include "corvane/components/component_server.h"
#include "corvane/net/network.h"
#include "corvane/net/socket.h"
#include "tests/support/own_listener.h"

#include <gtest/gtest.h>
#include <thread>
#include <utility>
#include <vector>

// Two sockets over the loopback that hold little, by default as little as the system allows, so that a sender soon
// meets a full one.
class NarrowPair {
 public:
  explicit NarrowPair(int bytes = 4096) {
    CS_ComponentServer::initialize(0, 0);
    const std::intptr_t listener = make(bytes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::inet_addr(OwnListener::host().c_str());
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    corvane::SocketLength length = sizeof address;
    EXPECT_EQ(0, ::bind(corvane::native(listener), any, length));
    EXPECT_EQ(0, ::listen(corvane::native(listener), 1));
    EXPECT_EQ(0, ::getsockname(corvane::native(listener), any, &length));
    dialedHandle = make(bytes);
    EXPECT_EQ(0, ::connect(corvane::native(dialedHandle), any, length));
    acceptedHandle = static_cast<std::intptr_t>(::accept(corvane::native(listener), nullptr, nullptr));
    corvane::closeSocket(listener);
    dialed = corvane::Socket(dialedHandle);
    accepted = corvane::Socket(acceptedHandle);
  }

  std::intptr_t dialedHandle = -1;
  std::intptr_t acceptedHandle = -1;
  corvane::Socket dialed;
  corvane::Socket accepted;

 private:
  static std::intptr_t make(int small) {
    const auto handle = static_cast<std::intptr_t>(::socket(AF_INET, SOCK_STREAM, 0));
    ::setsockopt(corvane::native(handle), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&small), sizeof small);
    ::setsockopt(corvane::native(handle), SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&small), sizeof small);
    return handle;
  }
};

// Bytes of which no stretch repeats at any distance that a buffer, a frame or a window has.
inline std::vector<unsigned char> unlikeBytes(std::size_t count) {
  std::vector<unsigned char> bytes(count);
  std::uint64_t state = 88172645463325252u;
  for (unsigned char& made : bytes) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    made = static_cast<unsigned char>(state >> 24);
  }
  return bytes;
}

// Everything that comes until the peer closes, or until so many bytes are there.
inline std::vector<unsigned char> receiveAll(corvane::Socket& socket, std::size_t atMost) {
  std::vector<unsigned char> all(atMost);
  std::size_t came = 0;
  while (came < atMost) {
    const auto now = socket.receive(std::span(all).subspan(came), corvane::after(20000));
    if (!now || *now == 0) break;
    came += *now;
  }
  all.resize(came);
  return all;
}
