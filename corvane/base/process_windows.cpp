#include "corvane/base/process.h"

#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

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

namespace {

std::atomic<unsigned long> lastFailure{0};

}  // namespace

ProcessIdentity::ProcessIdentity() noexcept {
  const LastErrorKeeper keeper;
  HANDLE token = nullptr;
  // Asked as the process: the user may not have the right to open the token that stands for him.
  if (!::OpenThreadToken(::GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &token)) return;
  if (::SetThreadToken(nullptr, nullptr)) {
    m_token = token;
  } else {
    ::CloseHandle(token);
  }
}

ProcessIdentity::~ProcessIdentity() {
  if (m_token == nullptr) return;
  const LastErrorKeeper keeper;
  if (!::SetThreadToken(nullptr, m_token)) {
    lastFailure = ::GetLastError();
    if (!::ImpersonateAnonymousToken(::GetCurrentThread())) {
      ::OutputDebugStringA("MgPrintMon: the identity of the user is lost, so the process ends\r\n");
      std::abort();
    }
  }
  ::CloseHandle(m_token);
}

unsigned long ProcessIdentity::takeError() noexcept {
  return lastFailure.exchange(0);
}

}  // namespace corvane
