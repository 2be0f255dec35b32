#include "corvane/last_error.h"
#include "corvane/process_identity.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>

namespace corvane {
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
