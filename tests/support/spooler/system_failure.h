#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace mg::support {

// Text between Windows and the terminal: UTF-16 to UTF-8 and back.
std::string Utf8(const std::wstring& text);
std::wstring Wide(const std::string& text);

// A call of Windows that failed, as one readable line: what was tried, the system's words and the error number.
class SystemFailure : public std::runtime_error {
 public:
  SystemFailure(const std::string& what, DWORD error);

  DWORD error() const { return error_; }

 private:
  DWORD error_;
};

// Throws a SystemFailure with the thread's last error unless `done`.
void Require(bool done, const std::string& what);

}  // namespace mg::support
