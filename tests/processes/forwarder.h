#pragma once

#include "corvane/net/socket.h"
#include "tests/support/own_listener.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tests {

// What stands between a print client and its server in real life - a router that translates addresses, a tunnel: each
// connection to it becomes one to a port of 127.0.0.1, and its bytes are passed on and remembered. Its threads end with
// it.
class Forwarder {
 public:
  explicit Forwarder(std::uint16_t target);
  ~Forwarder();
  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  // "127.93.4.211:40123", to be dialed.
  std::string address() const { return OwnListener::host() + ":" + std::to_string(m_listener.port()); }
  // Everything that was passed on, of both directions and all connections, each direction in one piece.
  std::vector<std::string> seen();
  // Ends all connections as a pulled cable does for whoever speaks next.
  void cut();

 private:
  struct Line {
    corvane::Socket near;
    corvane::Socket far;
    std::string forth;
    std::string back;
    std::thread forthThread;
    std::thread backThread;
  };

  void accept();
  void pass(corvane::Socket& from, corvane::Socket& to, std::string& into);

  const std::uint16_t m_target;
  OwnListener m_listener;
  std::mutex m_lock;  // guards the lines and what was seen on them
  std::list<Line> m_lines;
  std::thread m_acceptor;
};

}  // namespace tests
