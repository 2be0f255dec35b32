#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

namespace aps {

// An open file that is there for this program alone: on Linux readable by its owner only, on Windows with the access
// list of its folder. Operations throw std::system_error in the system's own words. Used by one thread.
class PrivateFile {
 public:
  // A new file; fails when something of that name exists.
  static PrivateFile create(const std::filesystem::path& path);
  // One to be read. What is not a regular file, a link included, is refused with std::runtime_error.
  static PrivateFile open(const std::filesystem::path& path);
  PrivateFile(PrivateFile&& other) noexcept;
  PrivateFile(const PrivateFile&) = delete;
  PrivateFile& operator=(const PrivateFile&) = delete;
  ~PrivateFile();

  // A write that the system takes only in part is continued until all is taken or it fails.
  void write(std::span<const unsigned char> bytes);
  // Returns when the data are on the disk.
  void sync();
  std::uint64_t size() const;
  // What follows is read from there.
  void seek(std::uint64_t position);
  // As much as the buffer takes, less only at the end of the file.
  std::size_t read(std::span<unsigned char> buffer);

 private:
  explicit PrivateFile(std::intptr_t handle) : m_handle(handle) {}
  std::intptr_t m_handle;
};

// Gives a file, which nobody has open, another name in the same folder in place of what has it, and returns when that
// is on the disk. Throws std::system_error.
void moveDurably(const std::filesystem::path& from, const std::filesystem::path& to);
// The same for a file that is to be gone; one that is not there is no failure. Throws std::system_error.
void removeDurably(const std::filesystem::path& path);

// A folder that is there for this program alone, as long as the object lives; it is made when it is missing, for the
// account of this process. Throws std::runtime_error with the cause and what to do: on Linux others may use it, or
// another process has it.
class PrivateFolder {
 public:
  explicit PrivateFolder(std::filesystem::path path);
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder();

  const std::filesystem::path& path() const { return m_path; }

 private:
  const std::filesystem::path m_path;
  std::intptr_t m_mark = -1;  // what tells other processes that the folder is in use
};

}  // namespace aps
