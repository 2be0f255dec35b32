#include "programs/stop_request.h"

#include <windows.h>

#include <mutex>

namespace programs {
namespace {

// How long the system waits for a process whose console window closes; after that it is ended anyway.
constexpr DWORD kCloseMilliseconds = 5000;

std::mutex g_lock;  // guards g_handler, and is held while it runs
std::function<void()> g_handler;
HANDLE g_ended = nullptr;

BOOL WINAPI onConsole(DWORD event) {
  {
    const std::lock_guard<std::mutex> guard(g_lock);
    if (!g_handler) return FALSE;
    g_handler();
    g_handler = nullptr;
  }
  // When this returns for one of these events the process is gone, so the clean end is waited for.
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) WaitForSingleObject(g_ended, kCloseMilliseconds);
  return TRUE;
}

}  // namespace

// There is no hang-up here.
// NOLINTNEXTLINE(performance-unnecessary-value-param): the declaration is that of all systems
StopRequest::StopRequest(std::function<void()> handler, std::function<void()>) {
  g_ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  g_handler = std::move(handler);
  SetConsoleCtrlHandler(onConsole, TRUE);
}

StopRequest::~StopRequest() {
  SetConsoleCtrlHandler(onConsole, FALSE);
  const std::lock_guard<std::mutex> guard(g_lock);
  g_handler = nullptr;
  SetEvent(g_ended);  // left open: a console thread may still wait for it
}

}  // namespace programs
