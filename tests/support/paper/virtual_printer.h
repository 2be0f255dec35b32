#pragma once

#include "tests/support/paper/paper_place.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// An IPP printer (ippeveprinter) on a free port. What it prints it gives to a command of its own, which puts down the
// data and what was said about the job, and then does what the test wants of it. Gone with the object.
//
// It listens on every address of this machine, as it knows no other way; what the tests send goes over the loopback.
class VirtualPrinter {
 public:
  struct Settings {
    std::string formats = "application/pdf,application/postscript,application/octet-stream";
    std::string then = "exit 0";       // what its command does behind that, in the shell's language; "$1" is the file
    std::vector<std::string> options;  // further ones of ippeveprinter
  };
  explicit VirtualPrinter(const PaperPlace& place) : VirtualPrinter(place, Settings()) {}
  VirtualPrinter(const PaperPlace& place, Settings settings);
  ~VirtualPrinter();
  VirtualPrinter(const VirtualPrinter&) = delete;
  VirtualPrinter& operator=(const VirtualPrinter&) = delete;

  int port() const { return m_port; }
  std::string uri(const std::string& scheme = "ipp") const;
  // Ends it; it can be started again on the same port with its settings.
  void switchOff();
  void switchOn();
  ChildProcess& process() const { return *m_process; }

  // The data of the jobs that have come out, in order, each as it arrived.
  std::vector<std::string> printed() const;
  // What was said about the job that came out as that one: "IPP_COPIES" and the like; empty for what was not said.
  std::string said(std::size_t job, const std::string& name) const;
  const std::filesystem::path& folder() const { return m_folder; }

 private:
  std::filesystem::path m_folder;
  Settings m_settings;
  int m_port;
  std::unique_ptr<ChildProcess> m_process;
};

}  // namespace tests
