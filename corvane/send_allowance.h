#pragma once

#include <chrono>
#include <cstddef>

namespace corvane {

// How much longer a peer may keep the senders of one socket waiting. For every kSendWindow bytes that it takes, it may
// let them wait for the given time in total, over however many sends: so one that stops is given up after that time,
// and one that takes its bytes by the hundred cannot hold a sender for ever. Used under the lock of whoever sends.
class SendAllowance {
 public:
  using Duration = std::chrono::steady_clock::duration;

  explicit SendAllowance(std::chrono::milliseconds wait) : m_wait(wait) {}

  // What is left to wait, rounded up and never negative.
  std::chrono::milliseconds left() const;
  // The bytes that may still be taken before the time starts again; at least one.
  std::size_t window() const;
  // The peer took these, at most window(), of which one had to wait for so long.
  void waited(Duration time) { m_waited += time; }
  void took(std::size_t bytes);
  // Throws CS_Exception (3102): the peer is too slow.
  [[noreturn]] void refuse() const;

 private:
  std::chrono::milliseconds m_wait;
  Duration m_waited{0};
  std::size_t m_taken = 0;
};

}  // namespace corvane
