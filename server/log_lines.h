#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace aps {

// The latest lines of a log that reported a failure, on two shelves that take no room from each other: what became of
// jobs and of the server itself, and what was refused to peers, who can cause as much of it as they like. A shelf keeps
// at most kLines lines and kBytes together; older ones make room. A line longer than kLineBytes is cut. Any thread may
// add and read.
class RecentLines {
 public:
  static constexpr std::size_t kLines = 250;
  static constexpr std::size_t kBytes = 512 * 1024;
  static constexpr std::size_t kLineBytes = 16 * 1024;

  enum class Shelf { kHistory, kRefusals };

  // Gives the line up when there is no memory for it.
  void add(const std::string& line, Shelf shelf = Shelf::kHistory) noexcept;
  // The latest ones, oldest first; refusals are no more than half of them as long as the history has others. Throws
  // std::bad_alloc.
  std::vector<std::string> latest(std::size_t count) const;

 private:
  struct Line {
    std::uint64_t number;  // in the order in which they were added
    std::string text;
  };
  struct Lines {
    std::deque<Line> lines;
    std::size_t bytes = 0;
  };

  mutable std::mutex m_lock;  // guards what follows
  Lines m_history;
  Lines m_refusals;
  std::uint64_t m_last = 0;
};

// Lines that a peer can cause as often as it likes, such as refusals, so that they cannot push everything else out of a
// log. They are counted by their kinds: the first kFirst of a kind (kFirstOrdinary where it reports no failure) are
// written; what follows within the kind's window is counted only, and one line at the window's end tells how many there
// were and what the latest one said. While they go on, each window is twice as long as the one before; after a window
// without any the kind begins anew. Past kKinds kinds at a time, the others share one.
//
// Any thread may call it. Times are handed in, so that tests need not wait.
class Repeats {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr int kFirst = 10;
  static constexpr int kFirstOrdinary = 100;
  static constexpr std::size_t kKinds = 64;
  static constexpr std::chrono::seconds kFirstWindow{60};
  static constexpr std::chrono::seconds kLongestWindow{600};

  struct Line {
    std::string text;
    bool isFailure = false;
  };

  // True when the line is to be written, false when it was only counted.
  bool take(const std::string& kind, const Line& line, Clock::time_point now);
  // When the next window ends; the largest time when none is open.
  Clock::time_point dueAt() const;
  // A line for each window that has ended and counted something.
  std::vector<Line> due(Clock::time_point now);
  // The same for all windows, at the end.
  std::vector<Line> all(Clock::time_point now);

 private:
  struct Kind {
    int written = 0;
    std::uint64_t counted = 0;
    Line latest;
    std::chrono::seconds length{kFirstWindow};
    Clock::time_point begin;
    Clock::time_point end() const { return begin + length; }
  };
  static Line summary(const Kind& kind, Clock::time_point now);

  mutable std::mutex m_lock;  // guards what follows
  std::map<std::string, Kind> m_kinds;
};

}  // namespace aps
