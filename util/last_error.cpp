#include "util/last_error.h"

#include <cerrno>
#ifdef _WIN32
#include <windows.h>
#endif

namespace mg {

LastErrorKeeper::LastErrorKeeper() noexcept {
#ifdef _WIN32
  m_lastError = GetLastError();
#endif
  m_errno = errno;
}

LastErrorKeeper::~LastErrorKeeper() {
  errno = m_errno;
#ifdef _WIN32
  SetLastError(m_lastError);
#endif
}

}  // namespace mg
