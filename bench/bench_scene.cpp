#include "bench/bench_scene.h"

#include "bench/samples.h"

#include <atomic>
#include <filesystem>
#include <signal.h>

namespace fs = std::filesystem;

using tests::ChildProcess;
using tests::MonitorPeer;
using tests::Scene;

namespace {

std::string sessionKey(int session) {
  return "session-" + std::to_string(session);
}

void removeFilesOf(const fs::path& folder) {
  if (!fs::exists(folder)) return;
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().extension() != ".part") fs::remove(entry.path());
}

std::uint16_t portAtEnd(const std::string& line) {
  return static_cast<std::uint16_t>(std::stoi(line.substr(line.find_last_of(": ") + 1)));
}

}  // namespace

BenchScene::BenchScene(int sessions, const std::vector<std::string>& serverOptions) {
  m_keys.make("monitor");
  for (int session = kFirstSession; session < kFirstSession + sessions; ++session)
    m_keys.make(sessionKey(session));
  std::vector<std::string> options = m_keys.serverOptions();
  options.insert(options.end(),
                 {"--state", "{folder}/sessions", "--history", "{folder}/history", "--log", "{folder}/aps.log"});
  options.insert(options.end(), serverOptions.begin(), serverOptions.end());
  m_scene = std::make_unique<Scene>(options);
}

ChildProcess& BenchScene::addClient(int session, const std::string& remoteServer) {
  auto command = m_scene->clientCommand(session, {"Laser"});
  command.insert(command.end(), {"--key", m_keys.path(sessionKey(session))});
  if (!remoteServer.empty()) {
    command[2] = remoteServer;
    command.emplace_back("--tls");
  }
  m_clients.push_back(std::make_unique<ChildProcess>(command));
  m_clients.back()->waitForLine("ready: ");
  return *m_clients.back();
}

std::uint16_t BenchScene::remotePort() {
  return portAtEnd(m_scene->server().waitForLine("aps listens for print clients on "));
}

void BenchScene::printWith(int session, const std::function<void(MonitorPeer&)>& write) const {
  MonitorPeer peer(m_scene->port(), corvane::Identity::monitor(), m_keys.path("monitor"));
  peer.attach(L"Laser (session " + std::to_wstring(session) + L")");
  // Each a name of its own: a print client numbers documents of one name, and looks for the next free number.
  static std::atomic<int> last{0};
  peer.startJob({L"j", L"Laser", L"document " + std::to_wstring(++last), L"RAW"}, {1, 1, 1, 1});
  write(peer);
  if (peer.endJob() <= 0) bench::giveUp("a job was not printed");
}

void BenchScene::print(int session, const std::string& piece, int times) const {
  printWith(session, [&](MonitorPeer& peer) {
    for (int i = 0; i < times; ++i)
      peer.writeJob(piece);
  });
}

void BenchScene::printDocument(int session, const std::string& document, std::size_t write) const {
  printWith(session, [&](MonitorPeer& peer) {
    for (std::size_t at = 0; at < document.size(); at += write)
      peer.writeJob(document.substr(at, write));
  });
}

void BenchScene::removeDocuments() const {
  for (int session = kFirstSession; session < kFirstSession + static_cast<int>(m_clients.size()); ++session)
    removeFilesOf(m_scene->output(session));
}

RawHops::RawHops(const std::string& folder, const std::string& program) : m_folder(folder) {
  fs::create_directories(folder);
  const std::string path = Scene::program(program);
  m_sink = std::make_unique<ChildProcess>(std::vector<std::string>{path, "sink", folder});
  const std::uint16_t sink = portAtEnd(m_sink->waitForLine(" listens on "));
  m_relay = std::make_unique<ChildProcess>(std::vector<std::string>{path, "relay", std::to_string(sink)});
  m_port = portAtEnd(m_relay->waitForLine(" listens on "));
}

void RawHops::removeFiles() const {
  removeFilesOf(m_folder);
}
