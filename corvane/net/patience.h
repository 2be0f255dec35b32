#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace corvane {

// How long a connection bears a peer that does not do its part. Every program uses the values below; tests make them
// shorter, so that nothing has to last as long as it does in earnest.
struct Patience {
  using Milliseconds = std::chrono::milliseconds;

  Milliseconds send{120000};    // what a peer may keep senders waiting for each corvane::kSendWindow bytes it takes
  Milliseconds beat{5000};      // between two signs of life, where the handshake has agreed on them
  Milliseconds silence{25000};  // without any byte from such a peer: it is gone

  // The same, so many times faster.
  Patience faster(int times) const { return {send / times, beat / times, silence / times}; }
};

// "25 seconds", "120 ms".
std::wstring durationText(std::chrono::milliseconds time);

// How much longer a peer may keep the senders of one socket waiting. For every kSendWindow bytes that it takes, it may
// let them wait for the given time in total, over however many sends: so one that stops is given up after that time,
// and one that takes its bytes by the hundred cannot hold a sender for ever. Used under the lock of the sender.
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
