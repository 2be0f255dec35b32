#include "tests/processes/notified_manager.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace tests {
namespace {

std::string ownName() {
  static std::atomic<int> count{0};
  return "@mg_service_manager_" + std::to_string(getpid()) + "_" + std::to_string(++count);
}

}  // namespace

NotifiedManager::NotifiedManager() : m_name(ownName()), m_handle(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, m_name.data(), m_name.size());
  address.sun_path[0] = '\0';
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_name.size());
  if (bind(m_handle, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    throw std::system_error(errno, std::generic_category(), m_name);
  }
}

NotifiedManager::~NotifiedManager() {
  close(m_handle);
}

std::vector<std::string> NotifiedManager::launcher(const std::string& watchdogMicroseconds) const {
  std::vector<std::string> command = {"/usr/bin/env", "NOTIFY_SOCKET=" + m_name};
  if (!watchdogMicroseconds.empty()) command.push_back("WATCHDOG_USEC=" + watchdogMicroseconds);
  return command;
}

std::string NotifiedManager::next() const {
  pollfd wait{m_handle, POLLIN, 0};
  while (poll(&wait, 1, 60000) < 0 && errno == EINTR) {
  }
  char bytes[4096];
  const ssize_t got = recv(m_handle, bytes, sizeof bytes, MSG_DONTWAIT);
  if (got < 0) throw std::runtime_error("the service manager is told nothing");
  return {bytes, static_cast<std::size_t>(got)};
}

std::vector<std::string> NotifiedManager::rest() const {
  std::vector<std::string> all;
  char bytes[4096];
  for (ssize_t got; (got = recv(m_handle, bytes, sizeof bytes, MSG_DONTWAIT)) >= 0;)
    all.emplace_back(bytes, static_cast<std::size_t>(got));
  return all;
}

}  // namespace tests
