#pragma once

#include "tests/processes/administration_peer.h"
#include "tests/processes/child_process.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tests {

// An application server with keys that holds jobs, in {folder}/held, and print clients of sessions 5 and 6 that
// remember what they have taken in a folder of the scene.
class HeldScene {
 public:
  // stopAt names the call at which the server stops once (stopped_calls.cpp); nothing for none.
  explicit HeldScene(const std::vector<std::string>& serverOptions = {}, const std::string& stopAt = "");

  // A print client, which is ready unless it is to stop at a call. One of another device than the usual one has its own
  // memory, and other() for its documents.
  std::unique_ptr<ChildProcess> startClient(int session = 5, const std::string& stopAt = "",
                                            const std::vector<std::string>& printers = {"Laser-2"},
                                            const std::string& device = "state");
  // One that gives its jobs to a program.
  std::unique_ptr<ChildProcess> startProgramClient(const std::vector<std::string>& program);
  // A client that came once and has gone, so that the session is known.
  void makeKnown(int session = 5);
  // A whole job of the printer Laser-2; the answer to its end, or nothing when the job was refused or cut.
  std::optional<int> print(const std::wstring& document, const std::string& data, int session = 5);
  // The port monitor's part of one, for a job that is not whole yet.
  std::unique_ptr<MonitorPeer> begin(const std::wstring& document, const std::string& data, int session = 5);

  // Names in the folder of held jobs that end so, in order.
  std::vector<std::string> held(const std::string& suffix = ".job") const;
  // Waits for what nothing tells; false after a minute.
  bool awaitHeld(std::size_t count) const;
  std::filesystem::path other() const;
  // Waits until the server says that the session's client is not there.
  void awaitAway(int session = 5) const;
  // The contents of a session's documents, in the order of their names.
  std::vector<std::string> contents(int session = 5) const;
  // The same for a person: of a long one only how long it is.
  std::vector<std::string> documents(int session = 5) const;
  AdministrationPeer::Job job(int number) const;
  AdministrationPeer administration() const { return {m_scene->port(), m_keys.path("monitor")}; }

  std::string keyFile(const std::string& name) const { return m_keys.path(name); }
  void makeKey(int session) { m_keys.make("session-" + std::to_string(session)); }
  // The session gets another key: who has the old one is nobody.
  void replaceKey(int session);
  // Starts the server again, without stopping at a call.
  void restartServer();
  Scene& scene() { return *m_scene; }
  ChildProcess& server() const { return m_scene->server(); }

 private:
  std::unique_ptr<ChildProcess> start(int session, const std::string& stopAt, const std::string& device,
                                      const std::vector<std::string>& command) const;
  Keys m_keys;
  std::unique_ptr<Scene> m_scene;
};

}  // namespace tests
