#include "tests/support/paper/virtual_printer.h"

#include <fstream>
#include <signal.h>
#include <sys/stat.h>

namespace tests {

namespace fs = std::filesystem;

VirtualPrinter::VirtualPrinter(const PaperPlace& place, Settings settings)
    : m_settings(std::move(settings)), m_port(PaperPlace::freePort()) {
  m_folder = place.folder("printer-" + std::to_string(m_port));
  fs::create_directories(m_folder / "spool");
  // Jobs come out one after another. The file gets its final name when it is whole, behind what was said about it.
  std::ofstream(m_folder / "command")
      << "#!/bin/sh\ncd " << m_folder.string()
      << "\nn=$(ls | grep -c '^said-')\nenv | grep -E '^(IPP_|CONTENT_TYPE=)' >said-$n\n"
         "cp \"$1\" part && mv part data-$n\n"
      << m_settings.then << "\n";
  chmod((m_folder / "command").c_str(), 0755);
  switchOn();
}

VirtualPrinter::~VirtualPrinter() {
  if (m_process) switchOff();
}

void VirtualPrinter::switchOn() {
  std::vector<std::string> command = {"/usr/sbin/ippeveprinter",
                                      "-p",
                                      std::to_string(m_port),
                                      "-n",
                                      "localhost",
                                      "-r",
                                      "off",
                                      "-k",
                                      "-d",
                                      (m_folder / "spool").string(),
                                      "-K",
                                      (m_folder / "keys").string(),
                                      "-c",
                                      (m_folder / "command").string(),
                                      "-f",
                                      m_settings.formats,
                                      "-vv"};
  fs::create_directories(m_folder / "keys");
  command.insert(command.end(), m_settings.options.begin(), m_settings.options.end());
  command.emplace_back("Virtual");
  m_process = PaperPlace::start(command);
  PaperPlace::waitForListener(m_port, *m_process);
}

void VirtualPrinter::switchOff() {
  PaperPlace::end(*m_process, SIGKILL);
  m_process.reset();
}

std::string VirtualPrinter::uri(const std::string& scheme) const {
  return scheme + "://localhost:" + std::to_string(m_port) + "/ipp/print";
}

std::vector<std::string> VirtualPrinter::printed() const {
  std::vector<std::string> all;
  for (;;) {
    const fs::path file = m_folder / ("data-" + std::to_string(all.size()));
    if (!fs::exists(file)) return all;
    all.push_back(PaperPlace::read(file));
  }
}

std::string VirtualPrinter::said(std::size_t job, const std::string& name) const {
  std::ifstream lines(m_folder / ("said-" + std::to_string(job)));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(name + "=")) return line.substr(name.size() + 1);
  }
  return "";
}

}  // namespace tests
