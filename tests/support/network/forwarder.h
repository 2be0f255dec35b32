#pragma once

#include "corvane/net/socket.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tests {

// What a line adds to what is sent over it. Without a rate or a delay nothing.
struct LineQuality {
  std::uint64_t bytesPerSecond = 0;    // of each direction, all connections together; 0: any
  std::chrono::milliseconds delay{0};  // of each direction
  std::size_t queue = 64 * 1024;  // what is on its way at most where there is a rate, of each connection and direction
};

// What stands between a print client and its server in real life - a router that translates addresses, a tunnel, a long
// or narrow line: each connection to it becomes one to a port of 127.0.0.1, and its bytes are passed on and remembered.
// Its threads end with it.
class Forwarder {
 public:
  explicit Forwarder(std::uint16_t target, const LineQuality& line = {});
  // Takes the connections of a listener that exists.
  Forwarder(corvane::Listener& listener, std::uint16_t target, const LineQuality& line);
  ~Forwarder();
  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  // "127.93.4.211:40123", to be dialed.
  std::string address() const { return m_listener.address(); }
  // Everything that was passed on, of both directions and all connections, each direction in one piece.
  std::vector<std::string> seen();
  // How many bytes have been passed on to the side that dialed, on all connections.
  std::size_t passedBack();
  // Ends all connections as a pulled cable does for whoever speaks next.
  void cut();

 private:
  using Clock = std::chrono::steady_clock;
  // One direction of all connections.
  struct Direction {
    Clock::time_point free{};  // when the line can send again
  };
  // One direction of one connection: what is on its way, with when it arrives.
  struct Way {
    std::deque<std::pair<Clock::time_point, std::vector<unsigned char>>> pieces;
    std::size_t waiting = 0;
    bool hasEnded = false;
    std::condition_variable changed;
    std::string seen;
    std::thread in, out;
  };
  struct Line {
    corvane::Socket near;
    corvane::Socket far;
    Way forth, back;
  };

  void accept();
  void start(Way& way, corvane::Socket& from, corvane::Socket& to, Direction& direction);
  void take(corvane::Socket& from, Way& way, Direction& direction);
  void pass(corvane::Socket& from, corvane::Socket& to, Way& way);

  const LineQuality m_quality;
  const std::uint16_t m_target;
  std::optional<corvane::Listener> m_ownListener;
  corvane::Listener& m_listener;
  std::mutex m_lock;  // guards the lines and what is on them
  Direction m_forth, m_back;
  std::list<Line> m_lines;
  std::thread m_acceptor;
};

}  // namespace tests
