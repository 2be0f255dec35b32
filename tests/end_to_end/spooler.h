#pragma once

#include "tests/end_to_end/wine_prefix.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// Wine's spooler with our monitor in a private prefix of the build tree: made once, alive while the test binary runs.
// Ports CPP5 to CPP8 exist, each with the printers "Laser-2 (session N)" and "Ink (session N)"; and on CPP5 stand
// "Ghost (session 5)", "desk (session 5)" and "Preview PDF (session 5)".
class Spooler {
 public:
  // The one of this process. Throws std::runtime_error with the output of what failed.
  static Spooler& get();
  Spooler(const Spooler&) = delete;
  Spooler& operator=(const Spooler&) = delete;

  // Points the module at an application server, an installation root and a log file, and at the monitor's key where the
  // server wants one.
  void configure(int serverPort, const std::filesystem::path& root, const std::filesystem::path& log,
                 const std::filesystem::path& keyFile = {});
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

  void install();

  WinePrefix m_prefix;
};

}  // namespace tests
