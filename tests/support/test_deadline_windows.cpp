#include "tests/support/test_deadline.h"

#include <windows.h>

#include <atomic>
#include <cstdio>

namespace tests {
namespace {

// The time at which the test that runs is over at the latest; 0 between two tests.
std::atomic<ULONGLONG> s_end{0};
char s_message[512];  // made when a test starts

template <class Function>
Function* ofKernel(const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), name)));
}

DWORD WINAPI watch(void*) {
  auto* const sleep = ofKernel<decltype(::Sleep)>("Sleep");
  auto* const tickCount = ofKernel<decltype(::GetTickCount64)>("GetTickCount64");
  for (;;) {
    sleep(1000);
    const ULONGLONG end = s_end;
    if (end == 0 || tickCount() < end) continue;
    std::fputs(s_message, stderr);
    std::fflush(stderr);
    ofKernel<decltype(::TerminateProcess)>("TerminateProcess")(reinterpret_cast<HANDLE>(-1), 1);
  }
}

}  // namespace

void TestDeadline::OnTestStart(const ::testing::TestInfo& test) {
  static const HANDLE thread = ::CreateThread(nullptr, 0, watch, nullptr, 0, nullptr);
  static_cast<void>(thread);  // ends with the process
  std::snprintf(s_message, sizeof s_message, "\n%s.%s: not over after %d seconds\n[  FAILED  ] %s.%s\n",
                test.test_suite_name(), test.name(), kTestSeconds, test.test_suite_name(), test.name());
  s_end = ofKernel<decltype(::GetTickCount64)>("GetTickCount64")() + kTestSeconds * 1000ull;
}

void TestDeadline::OnTestEnd(const ::testing::TestInfo&) {
  s_end = 0;
}

}  // namespace tests
