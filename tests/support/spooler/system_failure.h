#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace mg::support {

// Text between Windows and the terminal: UTF-16 to UTF-8 and back.
std::string utf8(const std::wstring& text);
std::wstring wide(const std::string& text);

// A call of Windows that failed, as one readable line: what was tried, the system's words and the error number.
class SystemFailure : public std::runtime_error {
 public:
  SystemFailure(const std::string& what, DWORD error);

  DWORD error() const { return m_error; }

 private:
  DWORD m_error;
};

// Throws a SystemFailure with the thread's last error unless `done`.
void require(bool done, const std::string& what);

}  // namespace mg::support
