#include "programs/stop_request.h"

#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace programs {
namespace {

constexpr char kStop = 's';
constexpr char kEnd = 'e';

int g_pipe[2] = {-1, -1};
std::thread g_waiter;

// Only what is safe inside a signal handler: one byte into the pipe.
void onSignal(int) {
  const int saved = errno;
  [[maybe_unused]] const ssize_t written = write(g_pipe[1], &kStop, 1);
  errno = saved;
}

void setAction(void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    sigaction(signal, &action, nullptr);
}

}  // namespace

StopRequest::StopRequest(std::function<void()> handler) {
  if (pipe(g_pipe) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  g_waiter = std::thread([handler = std::move(handler)] {
    bool called = false;
    char byte = 0;
    while (true) {
      const ssize_t got = read(g_pipe[0], &byte, 1);
      if (got < 0 && errno == EINTR) continue;
      if (got != 1 || byte == kEnd) return;
      if (!called) handler();
      called = true;
    }
  });
  // Back to the default action after the first signal, so that a second one ends a program that hangs.
  setAction(onSignal, SA_RESTART | static_cast<int>(SA_RESETHAND));
}

StopRequest::~StopRequest() {
  setAction(SIG_DFL, 0);
  [[maybe_unused]] const ssize_t written = write(g_pipe[1], &kEnd, 1);
  g_waiter.join();
  close(g_pipe[0]);
  close(g_pipe[1]);
}

}  // namespace programs
