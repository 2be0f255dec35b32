#include "corvane/last_error.h"
#include "corvane/process.h"

#include <windows.h>

#include <cerrno>

namespace corvane {

unsigned long processId() {
  return ::GetCurrentProcessId();
}
unsigned long threadId() {
  return ::GetCurrentThreadId();
}

std::tm localTime(std::time_t seconds) {
  std::tm parts{};
  ::localtime_s(&parts, &seconds);
  return parts;
}

LastErrorKeeper::LastErrorKeeper() : m_lastError(::GetLastError()), m_errno(errno) {}
LastErrorKeeper::~LastErrorKeeper() {
  errno = m_errno;
  ::SetLastError(m_lastError);
}

}  // namespace corvane
