#pragma once

#include "admin/failure.h"

#include <windows.h>

#include <string>

namespace admin {

// An error number of Windows in its words, with the number: "Access is denied (5)".
std::string errorWords(DWORD error);

// What to do about it; empty when the words say all there is.
std::string remedyFor(DWORD error);

// A call of Windows that failed. What was tried is the beginning of the text, as in "the port CPP5 cannot be added";
// exit code and remedy follow from the error.
class SystemFailure : public Failure {
 public:
  SystemFailure(const std::string& tried, DWORD error);
  DWORD error() const { return m_error; }

 private:
  DWORD m_error;
};

// Throws a SystemFailure with the thread's last error unless `done`.
void require(bool done, const std::string& tried);
// The same for calls that return the error itself.
void requireStatus(LSTATUS status, const std::string& tried);

}  // namespace admin
