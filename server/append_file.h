#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace aps {

// A file that is only ever appended to, or whatever else stands under its name, such as a pipe with a reader. Each
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
  std::error_code openAs(const std::filesystem::path& path, bool makeNew);

  std::intptr_t m_handle = kNone;  // a descriptor, or a handle of Windows
};

}  // namespace aps
