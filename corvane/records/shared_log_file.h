#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

namespace corvane {

// The log file that every process with the module appends to: each line is one append, so lines of different processes
// do not mix. Past its limit it becomes "<name>.1" and a new one is begun; while it cannot be renamed it grows on, but
// never past twice the limit. What a full disk does not take is lost, and counted in front of the next line that is in
// the file. Only a file on a disk is written, because anything else could make us wait.
//
// The file is the module's own: it is opened and renamed as the process, and the process that makes it gives access to
// the system, the administrators and himself. One thread at a time; never throws.
class SharedLogFile {
 public:
  SharedLogFile(std::wstring path, long long limit);
  ~SharedLogFile();
  SharedLogFile(const SharedLogFile&) = delete;
  SharedLogFile& operator=(const SharedLogFile&) = delete;

  // A line with its end. Nothing happens without a path.
  void append(const char* text, std::size_t size) noexcept;
  void flush() noexcept;

 private:
  bool makeReady(std::size_t bytes) noexcept;
  bool open() noexcept;
  void close() noexcept;
  long long size() const noexcept;
  bool put(const char* text, std::size_t size) noexcept;

  const std::wstring m_path;
  const std::wstring m_oldPath;
  const long long m_limit;
  void* m_security = nullptr;
  HANDLE m_file = INVALID_HANDLE_VALUE;
  unsigned long m_lost = 0;
  unsigned long m_error = 0;  // of the latest loss
  bool m_isCut = false;       // the file ends in the middle of a line
};

}  // namespace corvane
