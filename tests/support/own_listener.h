#pragma once

#include "corvane/net/socket.h"

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

// A listener that only this process's tests dial. Programs of other test runs go on dialing 127.0.0.1 and a port whose
// listener has gone; the system gives such a port out again, and the first connection that a test accepts would be a
// stranger's. So this one listens on a loopback address that nobody else knows: host() is to be dialed.
class OwnListener {
 public:
  OwnListener() : m_listener((corvane::initializeNetwork(), host() + ":0")) {}

  // "127.93.4.211": the same for the whole process.
  static const std::string& host() {
    static const std::string address = [] {
      std::random_device random;
      const auto part = [&](unsigned from, unsigned to) {
        return "." + std::to_string(std::uniform_int_distribution<unsigned>(from, to)(random));
      };
      return "127" + part(1, 254) + part(1, 254) + part(1, 254);
    }();
    return address;
  }
  static std::wstring wideHost() { return std::wstring(host().begin(), host().end()); }

  std::uint16_t port() const { return m_listener.port(); }
  // The next connection; throws std::runtime_error after stop().
  corvane::Socket accept() {
    auto socket = m_listener.accept();
    if (!socket) throw std::runtime_error("the listener was stopped before anybody dialed");
    return std::move(*socket);
  }
  corvane::Socket dial() const { return corvane::Socket::connect(host(), port(), false); }
  void stop() { m_listener.stop(); }

 private:
  corvane::Listener m_listener;
};
