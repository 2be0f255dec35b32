#pragma once

#include "tests/processes/child_process.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// The ground that printers and a scheduler of one test stand on: a folder, and a message bus that nobody else is on,
// because ippeveprinter and cupsd look for one. Both are gone with the object. Nothing of this machine's own scheduler,
// bus and settings is used: this process's HOME, CUPS_SERVER and bus are those of the place while it lives.
class PaperPlace {
 public:
  PaperPlace();
  ~PaperPlace();
  PaperPlace(const PaperPlace&) = delete;
  PaperPlace& operator=(const PaperPlace&) = delete;

  const std::filesystem::path& folder() const { return m_folder; }
  // A folder of that name within it, made when it is not there.
  std::filesystem::path folder(const std::string& name) const;

  // Starts a program that ends with this process, however that ends.
  static std::unique_ptr<ChildProcess> start(std::vector<std::string> command);
  // Ends one that start() has given: with the signal, whatever code it ends with then.
  static void end(ChildProcess& program, int signal);
  // Runs a program to its end and returns what it has said; throws std::runtime_error with that when it fails.
  static std::string run(const std::vector<std::string>& command);
  // A port of the loopback address that was free a moment ago.
  static int freePort();
  // Returns when somebody listens there; throws std::runtime_error when the program ends or a minute passes.
  static void waitForListener(int port, ChildProcess& program);
  // Returns when it is true; throws std::runtime_error after a minute.
  static void waitUntil(const std::string& what, const std::function<bool()>& isTrue);
  static std::string read(const std::filesystem::path& file);

 private:
  std::filesystem::path m_folder;
  std::unique_ptr<ChildProcess> m_bus;
};

}  // namespace tests
