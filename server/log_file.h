#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace aps {

// A file that is only ever appended to, or something else of that name, such as a pipe with a reader. Each
// write is one append. A file that it makes can be read by the account of this process (on Windows also by the system
// and the administrators) and by nobody else. Movable, one thread.
class AppendFile {
 public:
  AppendFile() = default;
  ~AppendFile() { close(); }
  AppendFile(AppendFile&& other) noexcept : m_handle(other.m_handle) { other.m_handle = kNone; }
  AppendFile& operator=(AppendFile&& other) noexcept;

  // Opens the file, or makes it; never waits, not for the reader of a pipe either. A file that everybody may read
  // loses that, for it is an accident of the account's settings; what an administrator allowed a group, stays.
  std::error_code open(const std::filesystem::path& path);
  // Makes the file; fails when there is something of that name.
  std::error_code make(const std::filesystem::path& path);
  void close();

  bool isOpen() const { return m_handle != kNone; }
  // Whether it is a file on a disk, which has a size and can be renamed.
  bool isRegular() const;
  std::uint64_t size() const;
  // Waits for a pipe. After a failure `written` bytes of the text are in the file all the same.
  std::error_code write(std::string_view text, std::size_t& written);

 private:
  static constexpr std::intptr_t kNone = -1;

  std::intptr_t m_handle = kNone;  // a descriptor, or a handle of Windows
};

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
  // Reopens the file of that name before the next write: it may have been renamed. When that fails the old one stays
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
