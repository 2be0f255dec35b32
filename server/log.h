#pragma once

#include "server/recent_lines.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>

namespace aps {

// The log of the application server: one line per event, UTF-8, with local time in front. A line is in the file when
// line() returns. Past the limit the file is renamed to "<name>.1", replacing an older one, and a new file is begun.
//
// Any thread may write. Writing never throws: a line that cannot be written is given up, so that a full disk does not
// stop jobs.
class Log {
 public:
  static constexpr std::uint64_t kLimitBytes = 8 * 1024 * 1024;

  // Appends to the file, or to the standard error output when the path is empty. Throws std::runtime_error when the
  // file cannot be opened.
  explicit Log(const std::filesystem::path& file, std::uint64_t limitBytes = kLimitBytes);
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // The text is one line without its end.
  void line(const std::string& text) noexcept;
  // Such a line that tells of a failure: of a job that did not arrive, or of something refused.
  void failure(const std::string& text) noexcept;
  // The latest lines that told of a failure, with their times.
  const RecentLines& failures() const { return m_failures; }

 private:
  void write(const std::string& whole);
  bool openLocked();
  void rotateLocked();

  const std::filesystem::path m_path;
  const std::uint64_t m_limit;
  RecentLines m_failures;
  std::mutex m_lock;  // guards what follows
  std::FILE* m_file = nullptr;
  std::uint64_t m_size = 0;
};

}  // namespace aps
