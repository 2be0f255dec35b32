#include "programs/stop_request.h"

#ifdef _WIN32

#include "programs/windows_service.h"

#include <windows.h>

#include <mutex>

namespace programs {
namespace {

// How long the system waits for a process whose console window closes; after that it is ended anyway.
constexpr DWORD kCloseMilliseconds = 5000;

std::mutex g_lock;  // guards g_handler, and is held while it runs
std::function<void()> g_handler;
HANDLE g_ended = nullptr;

// Whether there was a handler to call.
bool ask() {
  const std::lock_guard<std::mutex> guard(g_lock);
  if (!g_handler) return false;
  g_handler();
  g_handler = nullptr;
  return true;
}

BOOL WINAPI onConsole(DWORD event) {
  if (!ask()) return FALSE;
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
  // A service hears of the users who log off, and goes on.
  if (WindowsService* const service = WindowsService::current(); service != nullptr) {
    service->onStop([] { ask(); });
  } else {
    SetConsoleCtrlHandler(onConsole, TRUE);
  }
}

StopRequest::~StopRequest() {
  if (WindowsService::current() == nullptr) SetConsoleCtrlHandler(onConsole, FALSE);
  const std::lock_guard<std::mutex> guard(g_lock);
  g_handler = nullptr;
  SetEvent(g_ended);  // left open: a console thread may still wait for it
}

}  // namespace programs

#else

#include <atomic>
#include <cstdlib>
#include <pthread.h>
#include <signal.h>
#include <thread>

namespace programs {
namespace {

std::thread g_waiter;
std::atomic<bool> g_ending{false};

sigset_t stopSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP})
    sigaddset(&set, number);
  return set;
}

void waitForSignals(const std::function<void()>& handler, const std::function<void()>& onHangup) {
  const sigset_t set = stopSignals();
  bool called = false;
  while (true) {
    int number = 0;
    if (sigwait(&set, &number) != 0) return;
    if (g_ending) return;
    if (number == SIGHUP && onHangup) {
      onHangup();
      continue;
    }
    if (called) std::_Exit(128 + number);
    called = true;
    handler();
  }
}

}  // namespace

// The signals are blocked in every thread of the program and taken by one that does nothing else, so that a handler
// may do what it likes.
StopRequest::StopRequest(std::function<void()> handler, std::function<void()> onHangup) {
  const sigset_t set = stopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  g_ending = false;
  g_waiter = std::thread(
      [handler = std::move(handler), onHangup = std::move(onHangup)] { waitForSignals(handler, onHangup); });
}

StopRequest::~StopRequest() {
  g_ending = true;
  pthread_kill(g_waiter.native_handle(), SIGTERM);
  g_waiter.join();
}

}  // namespace programs

#endif
