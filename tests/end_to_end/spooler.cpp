#include "tests/end_to_end/spooler.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>
#include <thread>

namespace tests {

namespace fs = std::filesystem;

namespace {

fs::path ppdOfGhostscript() {
  for (const auto& entry : fs::recursive_directory_iterator("/usr/share/ghostscript")) {
    if (entry.path().filename() == "ghostpdf.ppd") return entry.path();
  }
  throw std::runtime_error("Ghostscript's ghostpdf.ppd is missing; run scripts/setup");
}

// A program that comes before the server listens starts a second one, and in a new prefix the two disturb each other.
// Debian's Wine names the folder of its socket in the prefix.
void waitForServer(const fs::path& prefix) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    std::string folder;
    if (std::ifstream(prefix / "wineserver") >> folder && fs::is_directory("/tmp/" + folder)) {
      for (const auto& entry : fs::directory_iterator("/tmp/" + folder)) {
        if (fs::is_socket(entry.path() / "socket")) return;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace

std::string windowsPath(const fs::path& path) {
  std::string text = "Z:" + path.string();
  std::replace(text.begin(), text.end(), '/', '\\');
  return text;
}

Spooler& Spooler::get() {
  static Spooler spooler;
  return spooler;
}

Spooler::Spooler() : m_prefix(fs::path(MG_BUILD_DIR) / "wine-end-to-end") {
  if (!fs::exists(fs::path(MG_WINDOWS_BIN_DIR) / "MgPrintMon.dll")) {
    throw std::runtime_error("the Windows programs are not built; build the preset windows-x64 first");
  }
  fs::create_directories(m_prefix);
  setenv("MG_WINE_PREFIX", m_prefix.c_str(), 1);
  setenv("WINEPREFIX", m_prefix.c_str(), 1);
  m_server = std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/lib/wine/wineserver64", "-f", "-p"});
  waitForServer(m_prefix);
  const fs::path ready = m_prefix / ".ready";
  if (!fs::exists(ready)) {
    run("wineboot", {"--init"});
    std::ofstream(ready) << "made by end_to_end_tests\n";
  }
  install();
}

Spooler::~Spooler() {
  // On SIGINT the server ends every process of its prefix; on SIGTERM it leaves Wine's services behind without it.
  m_server->signal(SIGINT);
  m_server->wait();
}

void Spooler::install() {
  const std::string mgspool = std::string(MG_WINDOWS_BIN_DIR) + "/mgspool.exe";
  run(mgspool, {"setup", "--ppd", windowsPath(ppdOfGhostscript())});
  for (const char* session : {"5", "6", "7", "8"}) {
    const std::string port = std::string("CPP") + session;
    run(mgspool, {"add-port", port});
    for (const char* printer : {"Laser-2", "Ink"})
      run(mgspool, {"add-printer", std::string(printer) + " (session " + session + ")", port});
  }
  run(mgspool, {"add-printer", "Ghost (session 5)", "CPP5"});
  run(mgspool, {"add-printer", "Preview PDF (session 5)", "CPP5"});
}

void Spooler::configure(int serverPort, const fs::path& root, const fs::path& log) {
  run(std::string(MG_WINDOWS_BIN_DIR) + "/mgspool.exe", {"settings", "--server-port", std::to_string(serverPort),
                                                         "--root", windowsPath(root), "--log", windowsPath(log)});
}

std::unique_ptr<ChildProcess> Spooler::print(const std::string& printer, const fs::path& file,
                                             const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"print", printer, windowsPath(file)};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return std::make_unique<ChildProcess>(command(std::string(MG_WINDOWS_BIN_DIR) + "/mgspool.exe", arguments));
}

std::unique_ptr<ChildProcess> Spooler::draw(const std::string& printer, const std::string& title,
                                            const std::vector<std::string>& pages,
                                            const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {printer, title};
  arguments.insert(arguments.end(), pages.begin(), pages.end());
  arguments.insert(arguments.end(), options.begin(), options.end());
  return std::make_unique<ChildProcess>(command(std::string(MG_WINDOWS_BIN_DIR) + "/gdi_page.exe", arguments));
}

std::vector<std::string> Spooler::leftovers() const {
  std::vector<fs::path> folders = {m_prefix / "drive_c/windows/temp", m_prefix / "drive_c/mgtestproc",
                                   m_prefix / "drive_c/windows/system32/spool/printers"};
  for (const auto& user : fs::directory_iterator(m_prefix / "drive_c/users"))
    folders.push_back(user.path() / "Temp");
  std::vector<std::string> names;
  for (const fs::path& folder : folders) {
    if (!fs::is_directory(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder))
      names.push_back(entry.path().string());
  }
  return names;
}

std::vector<std::string> Spooler::command(const std::string& program, const std::vector<std::string>& arguments) const {
  std::vector<std::string> words = {std::string(MG_SOURCE_DIR) + "/scripts/run-under-wine", program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

void Spooler::run(const std::string& program, const std::vector<std::string>& arguments) {
  // The first programs in a prefix start Wine's services, which keep the standard output that they inherit open: so
  // that is a file here and not the pipe that a ChildProcess reads to its end.
  const fs::path log = m_prefix / "set-up.log";
  std::vector<std::string> words = command(program, arguments);
  words.insert(words.begin(), {"/bin/sh", "-c", "exec \"$@\" >\"$0\" 2>&1", log});
  ChildProcess process(words);
  if (process.wait() == 0) return;
  std::ifstream in(log);
  throw std::runtime_error(program + " " + arguments[0] + ": " + std::string(std::istreambuf_iterator<char>(in), {}));
}

}  // namespace tests
