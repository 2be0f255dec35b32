#pragma once

#include <windows.h>

#include <array>
#include <cstddef>

// What happened to one job so far, as short lines with their times: kept in memory, and written to the process's own
// log only when the job has failed. The oldest line gives way when there are more than kLines. Adding allocates
// nothing, takes no lock and leaves the thread's last error alone. Belongs to one thread at a time.
class JobTrail {
 public:
  static constexpr std::size_t kLines = 24;
  static constexpr std::size_t kLineSize = 160;  // characters, terminator included; a longer line is cut

  // printf-style, with wide text for %s.
  void add(const wchar_t* format, ...) noexcept;

  // Writes the lines, oldest first, each with its local time, under the given word. Never throws.
  void write(const wchar_t* kind) const noexcept;

 private:
  struct Line {
    FILETIME at;
    wchar_t text[kLineSize];
  };
  std::array<Line, kLines> m_lines{};
  std::size_t m_added = 0;
};
