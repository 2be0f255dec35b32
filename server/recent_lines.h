#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace aps {

// The latest lines of a log that told of a failure, on two shelves that take no room from each other: what became of
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

}  // namespace aps
