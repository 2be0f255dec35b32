#pragma once

#include "tests/processes/child_process.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tests {

// What the server calls the printer "Laser-2" of session 5.
inline const std::wstring kLaserPrinter = L"Laser-2 (session 5)";

// An application server on a free port and a folder for one test; both are gone when the object dies.
class Scene {
 public:
  // Unless the options say otherwise, the server waits for no print client, so that a test of a refusal has it at once.
  // "{folder}" in an option stands for the folder. The launcher is a command line that ends as the server's program.
  explicit Scene(const std::vector<std::string>& serverOptions = {}, const std::vector<std::string>& launcher = {});
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // A print client that is registered; its jobs go to output(session).
  std::unique_ptr<ChildProcess> startClient(int session, const std::vector<std::string>& printers);
  // The command line of such a client.
  std::vector<std::string> clientCommand(int session, const std::vector<std::string>& printers) const;
  // Starts the server again on the same port.
  void restartServer();
  // The launcher of every later start.
  void useLauncher(const std::vector<std::string>& launcher) { m_launcher = launcher; }

  ChildProcess& server() const { return *m_server; }
  int port() const { return m_port; }
  std::filesystem::path folder() const { return m_folder; }
  std::filesystem::path output(int session) const;
  // The names of a session's files, temporary ones included, in order.
  std::vector<std::string> files(int session) const;
  std::string content(int session, const std::string& name) const;

  // The command line of a server on that port with those options. It serves without keys unless they name a folder:
  // most tests are not about who may connect.
  static std::vector<std::string> serverCommand(const std::string& address, const std::vector<std::string>& options);
  // The path of a built program.
  static std::string program(const std::string& name);

 private:
  void startServer(int port);

  std::filesystem::path m_folder;
  std::vector<std::string> m_options;
  std::vector<std::string> m_launcher;
  int m_port = 0;
  std::unique_ptr<ChildProcess> m_server;
};

}  // namespace tests
