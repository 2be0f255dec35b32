#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace printclient {

// A new file being written. Every operation throws std::system_error with the system's own words when it fails; a write
// that the system takes only in part is continued until all is taken or it fails. Used by one thread.
class DiskFile {
 public:
  // Creates the file; fails when something of that name exists.
  explicit DiskFile(const std::filesystem::path& path);
  // Closes the file, whatever state it is in.
  ~DiskFile();
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;

  void write(std::span<const unsigned char> bytes);
  // Returns when the data are on the disk and the file is closed.
  void finish();

 private:
  std::intptr_t m_handle;
};

// Gives a file another name in the same folder, and returns when that is on the disk. False when the new name is taken;
// nothing is ever overwritten. Throws std::system_error for any other failure.
bool renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace printclient
