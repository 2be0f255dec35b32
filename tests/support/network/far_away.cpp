// Runs a program as if its machine were far away: in a network namespace of its own with nothing but a loopback device,
// on which one port, named by FAR_PORT in its environment, leads over a line with a delay and a rate to a port of
// 127.0.0.1 outside. Ends with the program, and as it did. Needs root.
//
//   far_away PORT MILLISECONDS BYTES-A-SECOND PROGRAM [ARGUMENT...]      the delay is that of each direction, the rate
//   0 for any

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "tests/support/network/forwarder.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <net/if.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

pid_t g_program = -1;

int orThrow(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

void startLoopback() {
  const int device = orThrow(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  orThrow(::ioctl(device, SIOCGIFFLAGS, &request), "the loopback device");
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  orThrow(::ioctl(device, SIOCSIFFLAGS, &request), "the loopback device");
  ::close(device);
}

// A network namespace with a listener in it.
struct FarPlace {
  int handle = -1;
  std::unique_ptr<corvane::Listener> listener;
};

// Made by a thread of its own, which is the only one of this process that ever enters it.
FarPlace makeFarPlace() {
  FarPlace place;
  std::string failure;
  std::thread([&] {
    try {
      orThrow(::unshare(CLONE_NEWNET), "a network namespace");
      startLoopback();
      place.handle = orThrow(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "/proc/thread-self/ns/net");
      place.listener = std::make_unique<corvane::Listener>("127.0.0.1:0");
    } catch (const std::system_error& error) {
      failure = error.what();
    } catch (const CS_Exception& error) {
      failure = corvane::toUtf8(error.detail());
    }
  }).join();
  if (!failure.empty()) throw std::runtime_error(failure);
  return place;
}

[[noreturn]] void runFarAway(const FarPlace& place, char** program) {
  if (::setns(place.handle, CLONE_NEWNET) == 0) {
    ::setenv("FAR_PORT", std::to_string(place.listener->port()).c_str(), 1);
    ::execvp(program[0], program);
  }
  std::fprintf(stderr, "far_away: %s: %s\n", program[0], std::strerror(errno));
  ::_exit(127);
}

}  // namespace

int main(int count, char** arguments) try {
  if (count < 5) {
    std::fputs("usage: far_away PORT MILLISECONDS BYTES-A-SECOND PROGRAM [ARGUMENT...]\n", stderr);
    return 2;
  }
  tests::LineQuality line;
  line.delay = std::chrono::milliseconds(std::stoul(arguments[2]));
  line.bytesPerSecond = std::stoul(arguments[3]);
  const FarPlace place = makeFarPlace();
  g_program = orThrow(::fork(), "fork");
  if (g_program == 0) runFarAway(place, arguments + 4);
  for (const int number : {SIGINT, SIGTERM})
    std::signal(number, [](int signal) { ::kill(g_program, signal); });
  int status = 0;
  {
    tests::Forwarder way(*place.listener, static_cast<std::uint16_t>(std::stoul(arguments[1])), line);
    while (::waitpid(g_program, &status, 0) < 0 && errno == EINTR) {
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
} catch (const std::exception& failure) {
  std::fprintf(stderr, "far_away: %s\n", failure.what());
  return 1;
}
