#pragma once

#include "tests/processes/child_process.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// Wine's spooler with our monitor in a private prefix of the build tree: made once, alive while the test binary runs.
// Ports CPP5 to CPP8 exist, each with the printers "Laser-2 (session N)" and "Ink (session N)"; and on CPP5 stand
// "Ghost (session 5)" and "Preview PDF (session 5)".
class Spooler {
 public:
  // The one of this process. Throws std::runtime_error with the output of what failed.
  static Spooler& get();
  ~Spooler();
  Spooler(const Spooler&) = delete;
  Spooler& operator=(const Spooler&) = delete;

  // Points the module at an application server, an installation root and a log file.
  void configure(int serverPort, const std::filesystem::path& root, const std::filesystem::path& log);
  // Starts printing a file; the process ends with 0 only when the monitor took the job to its end.
  std::unique_ptr<ChildProcess> print(const std::string& printer, const std::filesystem::path& file,
                                      const std::vector<std::string>& options = {});
  // Starts an application that draws a page for each text through GDI and the printer's driver.
  std::unique_ptr<ChildProcess> draw(const std::string& printer, const std::string& title,
                                     const std::vector<std::string>& pages,
                                     const std::vector<std::string>& options = {});
  // Every file that printing could have left: temporary, spooled, outcomes. Empty when all is well.
  std::vector<std::string> leftovers() const;

 private:
  Spooler();

  std::vector<std::string> command(const std::string& program, const std::vector<std::string>& arguments) const;
  void run(const std::string& program, const std::vector<std::string>& arguments);
  void install();

  std::filesystem::path m_prefix;
  std::unique_ptr<ChildProcess> m_server;
};

// The path as a program in the prefix writes it.
std::string windowsPath(const std::filesystem::path& path);

}  // namespace tests
