#include "tests/processes/process_watch.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace tests {

namespace fs = std::filesystem;

Held heldBy(pid_t process) {
  const fs::path folder = fs::path("/proc") / std::to_string(process);
  std::ifstream status(folder / "status");
  if (!status) throw std::runtime_error("process " + std::to_string(process) + " is gone");
  Held held;
  for (std::string word; status >> word;) {
    if (word == "RssAnon:") status >> held.kilobytes;
    if (word == "Threads:") status >> held.threads;
  }
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder / "fd"))
    ++held.descriptors;
  // "1234 (name) S ..." with the times of user and system as the 14th and 15th field, in ticks.
  std::ifstream stat(folder / "stat");
  std::string line;
  std::getline(stat, line);
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  std::string skipped;
  for (int field = 3; field < 14; ++field)
    fields >> skipped;
  double user = 0, system = 0;
  fields >> user >> system;
  held.processorSeconds = (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
  return held;
}

Held heldAtRest(pid_t process, const Held& before) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;;) {
    const Held held = heldBy(process);
    const bool rests = held.threads <= before.threads && held.descriptors <= before.descriptors;
    if (rests || std::chrono::steady_clock::now() >= deadline) return held;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace tests
