#include "corvane/base/process.h"
#include "corvane/base/text.h"

#include <cstring>
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

std::wstring systemErrorWords(unsigned long error, bool) {
  char text[256] = {};
  return fromUtf8(::strerror_r(static_cast<int>(error), text, sizeof text));
}

}  // namespace corvane
