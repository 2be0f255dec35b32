#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tests {

// Looks again and again for what no event tells; false when it has not come true after so many seconds.
bool comesTrue(const std::function<bool()>& condition, int seconds);

struct Process {
  pid_t id = -1;
  pid_t parent = -1;
  std::string command;  // with its arguments, separated by blanks
};

// The processes of this machine whose command holds the text, this one left out.
std::vector<Process> processesWith(const std::string& text);

// Waits until a process is stopped by a signal; false after so many seconds.
bool waitUntilStopped(pid_t process, int seconds);
// Waits until a child of this process has ended, and leaves its status to the one who collects it; false after so long.
bool waitUntilEnded(pid_t child, int seconds);

}  // namespace tests
