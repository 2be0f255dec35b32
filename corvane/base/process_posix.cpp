#include "corvane/base/process.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvane {

unsigned long processId() {
  return static_cast<unsigned long>(::getpid());
}
unsigned long threadId() {
  return static_cast<unsigned long>(::syscall(SYS_gettid));
}

std::tm localTime(std::time_t seconds) {
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return parts;
}

LastErrorKeeper::LastErrorKeeper() : m_lastError(0), m_errno(errno) {}
LastErrorKeeper::~LastErrorKeeper() {
  errno = m_errno;
}

}  // namespace corvane
