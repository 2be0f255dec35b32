#include "tests/processes/scene.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>

namespace tests {

namespace fs = std::filesystem;

Scene::Scene(const std::vector<std::string>& serverOptions, const std::vector<std::string>& launcher)
    : m_options(serverOptions), m_launcher(launcher) {
  if (std::find(m_options.begin(), m_options.end(), "--client-wait") == m_options.end()) {
    m_options.insert(m_options.end(), {"--client-wait", "0"});
  }
  std::string pattern = (fs::temp_directory_path() / "mg_processes_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
  m_folder = pattern;
  startServer(0);
}

Scene::~Scene() {
  m_server.reset();
  std::error_code ignored;
  fs::remove_all(m_folder, ignored);
}

void Scene::startServer(int port) {
  std::vector<std::string> command = m_launcher;
  for (std::string word : serverCommand("127.0.0.1:" + std::to_string(port), m_options)) {
    const std::string folder = "{folder}";
    if (const std::size_t at = word.find(folder); at != std::string::npos) {
      word.replace(at, folder.size(), m_folder.string());
    }
    command.push_back(word);
  }
  m_server = std::make_unique<ChildProcess>(command);
  const std::string line = m_server->waitForLine("aps listens on 127.0.0.1:");
  m_port = std::stoi(line.substr(line.rfind(':') + 1));
}

void Scene::restartServer() {
  m_server.reset();
  startServer(m_port);
}

std::vector<std::string> Scene::clientCommand(int session, const std::vector<std::string>& printers) const {
  std::vector<std::string> command = {program("printclient"),
                                      "--server",
                                      "127.0.0.1:" + std::to_string(m_port),
                                      "--session",
                                      std::to_string(session),
                                      "--output",
                                      output(session).string()};
  for (const std::string& printer : printers) {
    command.push_back("--printer");
    command.push_back(printer);
  }
  return command;
}

std::unique_ptr<ChildProcess> Scene::startClient(int session, const std::vector<std::string>& printers) {
  auto client = std::make_unique<ChildProcess>(clientCommand(session, printers));
  client->waitForLine("ready: ");
  return client;
}

fs::path Scene::output(int session) const {
  return m_folder / ("session" + std::to_string(session));
}

std::vector<std::string> Scene::files(int session) const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(output(session)))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string Scene::content(int session, const std::string& name) const {
  std::ifstream in(output(session) / name, std::ios::binary);
  if (!in) throw std::runtime_error("no file " + name);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> Scene::serverCommand(const std::string& address, const std::vector<std::string>& options) {
  std::vector<std::string> command = {program("aps"), "--listen", address};
  command.insert(command.end(), options.begin(), options.end());
  if (std::find(options.begin(), options.end(), "--keys") == options.end()) command.push_back("--no-keys");
  return command;
}

std::string Scene::program(const std::string& name) {
  return std::string(MG_BIN_DIR) + "/" + name;
}

}  // namespace tests
