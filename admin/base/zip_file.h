#pragma once

#include "util/win_handle.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace admin {

// A ZIP archive that is written file by file, uncompressed, so that Windows opens it without any tool. A file of its
// name must not be there; one that is not finished is removed again. Every failure is a Failure that names it. Belongs
// to one thread.
class ZipFile {
 public:
  explicit ZipFile(const std::wstring& path);
  ~ZipFile();
  ZipFile(const ZipFile&) = delete;
  ZipFile& operator=(const ZipFile&) = delete;

  // The name is in ASCII, with "/" between folders.
  void add(const std::string& name, const std::string& content);
  // Writes the directory; nothing can be added any more.
  void finish();

 private:
  struct Entry {
    std::string name;
    std::uint32_t checksum = 0;
    std::uint32_t size = 0;
    std::uint32_t offset = 0;
  };
  std::string header(const Entry& entry) const;
  void write(const std::string& bytes);

  const std::wstring m_path;
  mg::FileHandle m_file;
  std::vector<Entry> m_entries;
  std::uint32_t m_written = 0;
  std::uint32_t m_time = 0;  // of all files in it: date and time as DOS has them
  bool m_isFinished = false;
};

}  // namespace admin
