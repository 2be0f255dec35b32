#pragma once

#include "server/log_file.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

namespace aps {

// The file of a JobLog, which another program reads while it grows: only whole lines are in it, but for the last one
// while a full disk has cut it. What is missing of that one comes first when there is room again; when this process has
// been killed meanwhile, the cut line is ended where it is, and comes again. The file is one on a disk. Past its limit
// it is renamed to "<name>.1", replacing an older one. One thread, but for reopen().
class JobLogFile {
 public:
  JobLogFile(std::filesystem::path path, std::uint64_t limitBytes) : m_path(std::move(path)), m_limit(limitBytes) {}

  // Appends whole lines in one piece. Empty when all of them are in the file, otherwise why not; then the same lines
  // are to be given again.
  std::string write(const std::string& lines);
  // Opens the file of that name anew before the next write: it may have been renamed. Any thread.
  void reopen() { m_wantsReopening = true; }

 private:
  std::string open();
  std::string makeRoom(std::size_t bytes);

  const std::filesystem::path m_path;
  const std::uint64_t m_limit;
  AppendFile m_file;
  std::uint64_t m_size = 0;  // bytes in the file
  std::size_t m_part = 0;    // of the lines that are to be given again these bytes are in the file
  bool m_isLineCut = false;  // the file ends within a line of which nobody knows the rest
  std::atomic<bool> m_wantsReopening{false};
};

}  // namespace aps
