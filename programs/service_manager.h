#pragma once

#include <chrono>
#include <string>

namespace programs {

// The service manager that has started this process, systemd for one, where it wants to be told how the process fares:
// one datagram at a time to the socket that NOTIFY_SOCKET names, as sd_notify(3) publishes it. On Windows that of the
// system, when this process is its service (windows_service.h); it is told when the program is ready, and knows the
// rest. Without one there is nobody to be told, and nothing happens. Immutable; tell() may be called by any thread.
class ServiceManager {
 public:
  using Time = std::chrono::microseconds;

  // Nobody.
  ServiceManager() = default;
  // A path that begins with "/", or "@" and an abstract name. Without signs of life within the time, the manager takes
  // this process for hung and ends it; zero where it wants none.
  explicit ServiceManager(std::string socket, Time watchdog = Time::zero());
  // The one that the environment names. Takes its variables out, because programs that this process starts are others;
  // so before there are other threads.
  static ServiceManager fromEnvironment();

  bool isThere() const { return !m_socket.empty(); }
  Time watchdog() const { return m_watchdog; }
  // Tells it these assignments, a line each. Why it was not told, for a log; empty when it was, or nobody is there. A
  // manager that takes nothing for a second is not told.
  std::string tell(const std::string& assignments) const;

 private:
  std::string m_socket;
  Time m_watchdog = Time::zero();
};

}  // namespace programs
