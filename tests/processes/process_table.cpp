#include "tests/processes/process_table.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tests {

namespace fs = std::filesystem;

bool comesTrue(const std::function<bool()>& condition, int seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

namespace {

// What stands in "/proc/ID/stat" behind the name: state and parent.
std::pair<char, pid_t> stateOf(const std::string& id) {
  std::ifstream stat("/proc/" + id + "/stat");
  std::string line;
  std::getline(stat, line);
  const std::size_t name = line.rfind(')');
  if (name == std::string::npos) return {'X', -1};
  std::istringstream fields(line.substr(name + 1));
  char state = 'X';
  pid_t parent = -1;
  fields >> state >> parent;
  return {state, parent};
}

}  // namespace

std::vector<Process> processesWith(const std::string& text) {
  std::vector<Process> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string id = entry.path().filename().string();
    if (id.find_first_not_of("0123456789") != std::string::npos) continue;
    std::string command;
    // One that has ended in between has none.
    std::getline(std::ifstream(entry.path() / "cmdline", std::ios::binary), command, '\n');
    std::replace(command.begin(), command.end(), '\0', ' ');
    const pid_t process = std::stoi(id);
    if (command.find(text) == std::string::npos || process == getpid()) continue;
    const auto [state, parent] = stateOf(id);
    if (state != 'Z' && state != 'X') found.push_back({process, parent, command});
  }
  return found;
}

bool waitUntilStopped(pid_t process, int seconds) {
  return comesTrue([&] { return stateOf(std::to_string(process)).first == 'T'; }, seconds);
}

bool waitUntilEnded(pid_t child, int seconds) {
  return comesTrue(
      [&] {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
      },
      seconds);
}

}  // namespace tests
