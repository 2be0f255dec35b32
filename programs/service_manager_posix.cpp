#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "programs/service_manager.h"
#include "programs/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace programs {
namespace {

std::string take(const char* name) {
  const char* const value = std::getenv(name);
  std::string text = value == nullptr ? "" : value;
  ::unsetenv(name);
  return text;
}

// Zero for everything that is no positive number.
long long numberIn(const std::string& text) {
  long long number = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() ? std::max(number, 0LL) : 0;
}

// The length of the address, or 0 when that names no socket. The bytes of an abstract name are those behind the one
// that stands for "@", without an end.
socklen_t fill(sockaddr_un& address, const std::string& name) {
  const bool isAbstract = name[0] == '@';
  if (name.size() < 2 || (!isAbstract && name[0] != '/')) return 0;
  if (name.size() > sizeof address.sun_path - (isAbstract ? 0 : 1)) return 0;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.data(), name.size());
  if (isAbstract) address.sun_path[0] = '\0';
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size() + (isAbstract ? 0 : 1));
}

}  // namespace

ServiceManager::ServiceManager(std::string socket, Time watchdog)
    : m_socket(std::move(socket)), m_watchdog(m_socket.empty() ? Time::zero() : watchdog) {}

ServiceManager ServiceManager::fromEnvironment() {
  std::string socket = take("NOTIFY_SOCKET");
  const Time watchdog(numberIn(take("WATCHDOG_USEC")));
  // Signs of life may be wanted of another process, which has passed its environment on.
  const std::string process = take("WATCHDOG_PID");
  const bool isMeant = process.empty() || numberIn(process) == ::getpid();
  return ServiceManager(std::move(socket), isMeant ? watchdog : Time::zero());
}

std::string ServiceManager::tell(const std::string& assignments) const {
  if (!isThere()) return {};
  sockaddr_un address{};
  const socklen_t length = fill(address, m_socket);
  if (length == 0) {
    return fmt::format(
        "NOTIFY_SOCKET is \"{}\": only a path that begins with / and an abstract name that begins with @ can be told, "
        "of at most {} bytes",
        oneLine(corvane::fromUtf8(m_socket)), sizeof address.sun_path - 1);
  }
  const int handle = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const timeval second{1, 0};
  ssize_t sent = -1;
  if (handle != -1 && ::setsockopt(handle, SOL_SOCKET, SO_SNDTIMEO, &second, sizeof second) == 0) {
    do {
      sent = ::sendto(handle, assignments.data(), assignments.size(), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), length);
    } while (sent < 0 && errno == EINTR);
  }
  const int error = errno;
  if (handle != -1) ::close(handle);
  if (sent >= 0) return {};
  return fmt::format(
      "the service manager at {} cannot be told: {}", oneLine(corvane::fromUtf8(m_socket)),
      error == EAGAIN ? "it takes nothing" : oneLine(corvane::systemErrorWords(static_cast<unsigned long>(error))));
}

}  // namespace programs
