#pragma once

#include "server/append_file.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

namespace aps {

// The file of a log. Past its limit it is renamed to "<name>.1", replacing an older one, once a new file has been made;
// as long as that fails nothing is thrown away and the file grows on, but never past twice the limit. Only what is a
// file on a disk is ever renamed. One thread, but for reopen().
class LogFile {
 public:
  LogFile(std::filesystem::path path, std::uint64_t limitBytes) : m_path(std::move(path)), m_limit(limitBytes) {}

  // Empty when it is open, otherwise why not.
  std::string open();
  // Appends the text; a line that a full disk has cut is ended first. Empty when all of it is in the file, otherwise
  // why not.
  std::string write(const std::string& text);
  // Opens the file of that name anew before the next write: it may have been renamed. When that fails the old one stays
  // in use. Any thread.
  void reopen() { m_wantsReopening = true; }
  // What became of that; empty when nothing went wrong since the last call.
  std::string takeReopenFailure() { return std::exchange(m_reopenFailure, {}); }

 private:
  void reopenNow();
  // Empty when the text fits now, otherwise why not.
  std::string makeRoom(std::size_t bytes);
  std::error_code rotate();

  const std::filesystem::path m_path;
  const std::uint64_t m_limit;
  AppendFile m_file;
  bool m_isRegular = false;
  std::uint64_t m_size = 0;  // bytes in the file
  bool m_isLineCut = false;  // what is in the file does not end with a line's end
  std::atomic<bool> m_wantsReopening{false};
  std::string m_reopenFailure;
};

}  // namespace aps
