#include "tests/end_to_end/wine_prefix.h"

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

std::string windowsProgram(const std::string& name) {
  return std::string(MG_WINDOWS_BIN_DIR) + "/" + name;
}

std::string windowsPath(const fs::path& path) {
  std::string text = "Z:" + path.string();
  std::replace(text.begin(), text.end(), '/', '\\');
  return text;
}

std::string windowsPathOfPpd() {
  return windowsPath(ppdOfGhostscript());
}

WinePrefix::WinePrefix(const std::string& name) : m_path(fs::path(MG_BUILD_DIR) / name) {
  if (!fs::exists(windowsProgram("MgPrintMon.dll"))) {
    throw std::runtime_error("the Windows programs are not built; build the preset windows-x64 first");
  }
  fs::create_directories(m_path);
  setenv("MG_WINE_PREFIX", m_path.c_str(), 1);
  setenv("WINEPREFIX", m_path.c_str(), 1);
  m_server = std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/lib/wine/wineserver64", "-f", "-p"});
  waitForServer(m_path);
  const fs::path ready = m_path / ".ready";
  if (fs::exists(ready)) return;
  run("wineboot", {"--init"});
  std::ofstream(ready) << "made by a test\n";
}

WinePrefix::~WinePrefix() {
  // On SIGINT the server ends every process of its prefix; on SIGTERM it leaves Wine's services behind without it.
  m_server->signal(SIGINT);
  m_server->wait();
}

std::vector<std::string> WinePrefix::command(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {std::string(MG_SOURCE_DIR) + "/scripts/run-under-wine", program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

void WinePrefix::run(const std::string& program, const std::vector<std::string>& arguments) const {
  // The first programs in a prefix start Wine's services, which keep the standard output that they inherit open: so
  // that is a file here and not the pipe that a ChildProcess reads to its end.
  const fs::path log = m_path / "set-up.log";
  std::vector<std::string> words = command(program, arguments);
  words.insert(words.begin(), {"/bin/sh", "-c", "exec \"$@\" >\"$0\" 2>&1", log});
  ChildProcess process(words);
  if (process.wait() == 0) return;
  std::ifstream in(log);
  throw std::runtime_error(program + " " + arguments[0] + ": " + std::string(std::istreambuf_iterator<char>(in), {}));
}

}  // namespace tests
