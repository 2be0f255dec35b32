#pragma once

#include <chrono>
#include <string>

namespace corvane {

// How long a connection bears a peer that does not do its part. Every program uses the values below; tests make them
// shorter, so that nothing has to last as long as it does in earnest.
struct Patience {
  using Milliseconds = std::chrono::milliseconds;

  Milliseconds send{120000};    // what a peer may keep senders waiting for each corvane::kSendWindow bytes it takes
  Milliseconds beat{5000};      // between two signs of life, where the greeting has agreed on them
  Milliseconds silence{25000};  // without any byte from such a peer: it is gone

  // The same, so many times faster.
  Patience faster(int times) const { return {send / times, beat / times, silence / times}; }
};

// "25 seconds", "120 ms".
std::wstring durationText(std::chrono::milliseconds time);

}  // namespace corvane
