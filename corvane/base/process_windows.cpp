#include "corvane/base/process.h"
#include "util/last_error.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <iterator>

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

std::wstring systemErrorWords(unsigned long error, bool withFullStop) {
  wchar_t text[512];
  DWORD length = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                                  static_cast<DWORD>(std::size(text)), nullptr);
  while (length > 0 && (text[length - 1] <= L' ' || (text[length - 1] == L'.' && !withFullStop)))
    --length;
  return {text, length};
}

namespace {

std::atomic<unsigned long> lastFailure{0};

}  // namespace

ProcessIdentity::ProcessIdentity() noexcept {
  const mg::LastErrorKeeper keeper;
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
  const mg::LastErrorKeeper keeper;
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
