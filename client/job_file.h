#pragma once

#include "client/disk_file.h"

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace printclient {

// The file of one job: written under a temporary name in the folder, and given its final name only when every byte is
// on the disk. Destroying the object before that removes the temporary file. Small pieces are gathered in a buffer of
// kBufferBytes; nothing else is kept in memory. Failures are those of DiskFile. Used by one thread.
class JobFile {
 public:
  JobFile(const std::filesystem::path& folder, const std::string& temporaryName);
  ~JobFile();
  JobFile(const JobFile&) = delete;
  JobFile& operator=(const JobFile&) = delete;

  void append(std::span<const unsigned char> bytes);
  // Completes the file under a free name among "name.ext", "name (2).ext", ... and returns that name: the first free
  // one up to kInOrder, and behind a free one whose number is found by doubling, so that a folder with a long day's
  // jobs of one name costs some dozens of looks and not one for each of them.
  std::string keepAs(std::string_view name, std::string_view extension);

  static constexpr std::size_t kBufferBytes = 64 * 1024;
  static constexpr int kInOrder = 100;

 private:
  void flush();
  // A number above kInOrder whose name was free a moment ago, while the name of the number before it was taken.
  int freeNumber(std::string_view name, std::string_view extension) const;
  std::filesystem::path pathOf(const std::string& name) const;

  const std::filesystem::path m_folder;
  std::unique_ptr<DiskFile> m_file;
  std::vector<unsigned char> m_buffer;
};

}  // namespace printclient
