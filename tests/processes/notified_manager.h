#pragma once

#include <string>
#include <vector>

namespace tests {

// A service manager's end of the socket that a program's NOTIFY_SOCKET names. Used by one test.
class NotifiedManager {
 public:
  // Under an abstract name of its own.
  NotifiedManager();
  ~NotifiedManager();
  NotifiedManager(const NotifiedManager&) = delete;
  NotifiedManager& operator=(const NotifiedManager&) = delete;

  // What NOTIFY_SOCKET is to be.
  const std::string& name() const { return m_name; }
  // A command line that gives the program behind it the variables, with the time if one is named.
  std::vector<std::string> launcher(const std::string& watchdogMicroseconds = {}) const;
  // The next datagram; throws std::runtime_error when a minute passes without one.
  std::string next() const;
  // Those that have come by now.
  std::vector<std::string> rest() const;

 private:
  const std::string m_name;
  const int m_handle;
};

}  // namespace tests
