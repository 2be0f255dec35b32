#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace aps {

// The latest lines of a log, at most kLines of them and kBytes together; older ones make room. A line longer than
// kLineBytes is cut. Any thread may add and read.
class RecentLines {
 public:
  static constexpr std::size_t kLines = 500;
  static constexpr std::size_t kBytes = 1024 * 1024;
  static constexpr std::size_t kLineBytes = 16 * 1024;

  // Gives the line up when there is no memory for it.
  void add(const std::string& line) noexcept;
  // The latest ones, oldest first. Throws std::bad_alloc.
  std::vector<std::string> latest(std::size_t count) const;

 private:
  mutable std::mutex m_lock;  // guards what follows
  std::deque<std::string> m_lines;
  std::size_t m_bytes = 0;
};

}  // namespace aps
