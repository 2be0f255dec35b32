#include "tests/processes/wine_host.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tests {

namespace fs = std::filesystem;

namespace {

fs::path windowsBinaries() {
  return fs::path(MG_SOURCE_DIR) / "build" / "windows-x64" / "bin";
}

fs::path prefix() {
  return fs::path(MG_BIN_DIR).parent_path() / "wine-processes";
}

}  // namespace

std::vector<fs::path> WineHost::temporaryPaths() const {
  std::vector<fs::path> paths;
  for (const fs::path& folder : WineServer::temporaryFolders(prefix())) {
    for (const auto& entry : fs::directory_iterator(folder))
      paths.push_back(entry.path());
  }
  return paths;
}

std::vector<std::string> WineHost::temporaryFiles() const {
  std::vector<std::string> names;
  for (const fs::path& path : temporaryPaths())
    names.push_back(path.filename().string());
  return names;
}

std::string WineHost::missing() {
  for (const char* name : {"MgPrintMon.dll", "port_host.exe", "mgspool.exe", "ps2pdf.exe", "stream_host.exe", "aps.exe",
                           "printclient.exe"}) {
    if (!fs::exists(windowsBinaries() / name)) {
      return std::string(name) + " is not built; build the preset windows-x64 first";
    }
  }
  return "";
}

WineHost::WineHost(Scene& scene) : m_scene(scene), m_wineServer(std::make_unique<WineServer>(prefix())) {
  const fs::path programs = scene.folder() / "root" / "Programs";
  fs::create_directories(programs);
  fs::copy_file(windowsBinaries() / "ps2pdf.exe", programs / "ps2pdf.exe", fs::copy_options::overwrite_existing);
  useServer(scene.port());
}

void WineHost::useServer(int port, const fs::path& keyFile) {
  changeSettings({"--server-port", std::to_string(port), "--root", windowsPath(m_scene.folder() / "root"), "--log",
                  windowsPath(m_scene.folder() / "module-%MG_PROCESS%.log"), "--key-file",
                  keyFile.empty() ? "" : windowsPath(keyFile), "--ghostscript", ""});
}

void WineHost::useGhostscript(const fs::path& program, int seconds) {
  changeSettings({"--ghostscript", program.string(), "--converter-seconds", std::to_string(seconds)});
}

void WineHost::changeSettings(const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"settings"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const auto settings = start("mgspool.exe", arguments);
  if (settings->wait() != 0) throw std::runtime_error("the settings cannot be written:\n" + settings->output());
}

std::unique_ptr<ChildProcess> WineHost::start(const std::string& program, const std::vector<std::string>& arguments,
                                              ChildProcess::Input input) {
  std::vector<std::string> command = {"/usr/bin/env", "MG_PROCESS=" + std::to_string(++m_started),
                                      std::string(MG_SOURCE_DIR) + "/scripts/run-under-wine",
                                      (windowsBinaries() / program).string()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<ChildProcess>(command, input);
}

bool WineHost::print(const std::string& printer, const std::string& document, const std::vector<std::string>& data) {
  std::vector<std::string> arguments = {"--port", "CPP5", "--printer", printer, "--document", document};
  arguments.insert(arguments.end(), data.begin(), data.end());
  const auto host = start("port_host.exe", arguments);
  const int code = host->wait();
  m_lastOutput = host->output();
  return code == 0;
}

std::string WineHost::pattern(std::size_t size) {
  std::string data(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    data[i] = static_cast<char>(i * 31 % 251);
  return data;
}

std::string WineHost::windowsPath(const fs::path& path) {
  std::string text = "Z:" + path.string();
  for (char& c : text) {
    if (c == '/') c = '\\';
  }
  return text;
}

std::string WineHost::log() const {
  std::string all;
  for (const auto& entry : fs::directory_iterator(m_scene.folder())) {
    if (!entry.path().filename().string().starts_with("module-")) continue;
    std::ifstream log(entry.path(), std::ios::binary);
    all.append(std::istreambuf_iterator<char>(log), {});
  }
  return all;
}

std::string WineHost::diagnosis() const {
  return m_lastOutput + log();
}

}  // namespace tests
