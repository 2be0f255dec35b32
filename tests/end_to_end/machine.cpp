#include "tests/end_to_end/machine.h"

#include <fstream>
#include <sstream>

namespace tests {

namespace fs = std::filesystem;

Machine& Machine::get() {
  static Machine machine;
  return machine;
}

Machine::Machine() : m_prefix("wine-administration") {
  clean();
  m_prefix.run(windowsProgram("mgspool.exe"), {"driver", "--ppd", windowsPathOfPpd()});
}

void Machine::clean() const {
  m_prefix.run(windowsProgram("mgprintmon.exe"), {"uninstall", "--force"});
}

void Machine::configure(const std::string& key, const std::string& name, const std::string& text) const {
  m_prefix.run("reg", {"add", "HKLM\\SOFTWARE\\Quillfern\\" + key, "/v", name, "/d", text, "/f"});
}

void Machine::forgetSettings(const std::string& key) const {
  m_prefix.run("reg", {"delete", "HKLM\\SOFTWARE\\Quillfern\\" + key, "/f"});
}

namespace {

std::string driverKey(const std::string& name) {
  return "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Print\\Environments\\Windows x64\\Drivers\\Version-3\\" + name;
}

}  // namespace

void Machine::registerDriver(const std::string& name, const std::string& file) const {
  for (const char* value : {"Driver", "Data File", "Configuration File"})
    m_prefix.run("reg", {"add", driverKey(name), "/v", value, "/d", file, "/f"});
}

void Machine::forgetDriver(const std::string& name) const {
  m_prefix.run("reg", {"delete", driverKey(name), "/f"});
}

void Machine::addPrinter(const std::string& name) const {
  m_prefix.run(windowsProgram("mgspool.exe"), {"add-printer", name, "LPT1:"});
}

void Machine::addPrinterIntoFile(const std::string& name, const std::filesystem::path& file) const {
  m_prefix.run("reg.exe", {"add", "HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Ports", "/v",
                           windowsPath(file), "/d", "", "/f"});
  m_prefix.run(windowsProgram("mgspool.exe"), {"add-printer", name, windowsPath(file), "--processor", "winprint"});
}

void Machine::removePrinter(const std::string& name) const {
  m_prefix.run(windowsProgram("mgspool.exe"), {"remove-printer", name});
}

namespace {

Machine::Result resultOf(ChildProcess& process) {
  const int code = process.wait();
  std::string output = process.output();
  std::erase(output, '\r');
  return {code, output};
}

}  // namespace

Machine::Result Machine::administer(const std::vector<std::string>& arguments) const {
  return resultOf(*start(arguments));
}

Machine::Result Machine::tool(const std::string& program, const std::vector<std::string>& arguments) const {
  ChildProcess process(WinePrefix::command(program, arguments));
  return resultOf(process);
}

std::unique_ptr<ChildProcess> Machine::start(const std::vector<std::string>& arguments) const {
  return std::make_unique<ChildProcess>(WinePrefix::command(windowsProgram("mgprintmon.exe"), arguments));
}

std::set<std::string> Machine::listing() const {
  std::set<std::string> lines;
  for (const char* folder : {"windows/system32", "Program Files", "ProgramData"}) {
    for (const auto& entry : fs::recursive_directory_iterator(m_prefix.path() / "drive_c" / folder)) {
      const std::string size = entry.is_regular_file() ? std::to_string(entry.file_size()) : "folder";
      lines.insert(entry.path().string() + " " + size);
    }
  }
  for (const char* key : {"HKLM\\SOFTWARE\\Quillfern", "HKLM\\SYSTEM\\CurrentControlSet\\Control\\Print",
                          "HKLM\\SYSTEM\\CurrentControlSet\\Services"}) {
    ChildProcess query(WinePrefix::command("reg", {"query", key, "/s"}));
    query.wait();
    std::istringstream in(query.output());
    // Values stand below their key.
    std::string current;
    for (std::string line; std::getline(in, line);) {
      if (line.starts_with("HKEY_")) current = line;
      lines.insert(current + " | " + line);
    }
  }
  return lines;
}

}  // namespace tests
