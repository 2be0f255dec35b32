#pragma once

#include "tests/end_to_end/wine_prefix.h"

#include <set>
#include <string>
#include <vector>

namespace tests {

// A machine to administer: a prefix of its own whose spooler has a driver and the tests' print processor, and nothing
// of ours installed at the start of each test. One in a process.
class Machine {
 public:
  static Machine& get();

  // What a program said, both outputs together, and its exit code.
  struct Result {
    int code = 0;
    std::string output;
  };
  // Runs mgprintmon.exe.
  Result administer(const std::vector<std::string>& arguments) const;
  // Runs a program of Windows.
  Result tool(const std::string& program, const std::vector<std::string>& arguments) const;
  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments) const;
  // Writes a text below HKEY_LOCAL_MACHINE "SOFTWARE\\Quillfern", as an administrator does.
  void configure(const std::string& key, const std::string& name, const std::string& text) const;
  // Takes a key below the same one away; what the tests' print processor has in "Marrowgate" must stay.
  void forgetSettings(const std::string& key) const;
  // A driver that the spooler lists, of that file in its folder of drivers; there need be none.
  void registerDriver(const std::string& name, const std::string& file) const;
  void forgetDriver(const std::string& name) const;
  // A printer of this machine that is none of ours, on a port of the system, with the driver that is there.
  void addPrinter(const std::string& name) const;
  // Such a one whose port is a file: what the spooler sends to the printer is in it.
  void addPrinterIntoFile(const std::string& name, const std::filesystem::path& file) const;
  void removePrinter(const std::string& name) const;
  // Takes away what an earlier test left.
  void clean() const;
  // The registry where drivers, monitors, printers, event sources, services and our own settings stand, and the files
  // of the system folder, the spooler, the programs and their data, as lines.
  std::set<std::string> listing() const;

  const std::filesystem::path& path() const { return m_prefix.path(); }

 private:
  Machine();

  WinePrefix m_prefix;
};

}  // namespace tests
