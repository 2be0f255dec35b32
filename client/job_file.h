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
// kBufferBytes; nothing else is kept in memory. Failures are std::system_error. Used by one thread.
class JobFile {
 public:
  JobFile(const std::filesystem::path& folder, const std::string& temporaryName);
  ~JobFile();
  JobFile(const JobFile&) = delete;
  JobFile& operator=(const JobFile&) = delete;

  void append(std::span<const unsigned char> bytes);
  // Completes the file under the first free name among "name.ext", "name (2).ext", ... and returns that name. Throws
  // std::runtime_error when kMaxNumber names are taken.
  std::string keepAs(std::string_view name, std::string_view extension);

  static constexpr std::size_t kBufferBytes = 64 * 1024;
  static constexpr int kMaxNumber = 10000;

 private:
  void flush();

  const std::filesystem::path m_folder;
  const std::filesystem::path m_temporary;
  std::unique_ptr<DiskFile> m_file;
  std::vector<unsigned char> m_buffer;
};

}  // namespace printclient
