#include "tests/end_to_end/wine_prefix.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tests {

namespace fs = std::filesystem;

namespace {

fs::path ppdOfGhostscript() {
  for (const auto& entry : fs::recursive_directory_iterator("/usr/share/ghostscript")) {
    if (entry.path().filename() == "ghostpdf.ppd") return entry.path();
  }
  throw std::runtime_error("Ghostscript's ghostpdf.ppd is missing; run scripts/setup");
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
  m_server = std::make_unique<WineServer>(m_path);
  const fs::path ready = m_path / ".ready";
  if (fs::exists(ready)) return;
  run("wineboot", {"--init"});
  // The service manager that has made the prefix and the next one answer by turns, each with its own services.
  m_server.reset();
  m_server = std::make_unique<WineServer>(m_path);
  std::ofstream(ready) << "made by a test\n";
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
