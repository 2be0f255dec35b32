#include "tests/processes/process_watch.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

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
