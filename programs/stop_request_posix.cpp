#include "programs/stop_request.h"

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
