#include "tests/processes/held_scene.h"

#include "corvane/records/exception.h"
#include "tests/processes/process_table.h"

#include <algorithm>
#include <signal.h>
#include <stdexcept>

namespace tests {
namespace {

std::wstring printerOf(int session) {
  return L"Laser-2 (session " + std::to_wstring(session) + L")";
}

std::vector<std::string> stopping(const std::string& stopAt) {
  if (stopAt.empty()) return {};
  return {"/usr/bin/env", "LD_PRELOAD=" + Scene::program("libmg_stopped_calls.so"), "MG_STOP_AT=" + stopAt};
}

std::vector<std::string> withOptions(const Keys& keys, const std::vector<std::string>& more) {
  std::vector<std::string> options = keys.serverOptions();
  options.insert(options.end(), {"--hold", "{folder}/held"});
  if (std::find(more.begin(), more.end(), "--pace") == more.end()) options.insert(options.end(), {"--pace", "5"});
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

}  // namespace

HeldScene::HeldScene(const std::vector<std::string>& serverOptions, const std::string& stopAt) {
  m_keys.make("monitor");
  m_keys.make("session-5");
  m_keys.make("session-6");
  m_scene = std::make_unique<Scene>(withOptions(m_keys, serverOptions), stopping(stopAt));
}

std::unique_ptr<ChildProcess> HeldScene::start(int session, const std::string& stopAt, const std::string& device,
                                               const std::vector<std::string>& client) const {
  std::vector<std::string> command = stopping(stopAt);
  if (command.empty()) command = {"/usr/bin/env"};
  command.push_back("XDG_STATE_HOME=" + (m_scene->folder() / device).string());
  command.insert(command.end(), client.begin(), client.end());
  command.insert(command.end(), {"--key", m_keys.path("session-" + std::to_string(session)), "--no-page",
                                 "--no-notices", "--pace", "5"});
  auto started = std::make_unique<ChildProcess>(command);
  if (stopAt.empty()) started->waitForLine("ready: ");  // another one may stop before that
  return started;
}

std::unique_ptr<ChildProcess> HeldScene::startClient(int session, const std::string& stopAt,
                                                     const std::vector<std::string>& printers,
                                                     const std::string& device) {
  std::vector<std::string> command = m_scene->clientCommand(session, printers);
  if (device != "state")
    std::replace(command.begin(), command.end(), m_scene->output(session).string(), other().string());
  return start(session, stopAt, device, command);
}

std::unique_ptr<ChildProcess> HeldScene::startProgramClient(const std::vector<std::string>& program) {
  std::vector<std::string> command = {Scene::program("printclient"),
                                      "--server",
                                      "127.0.0.1:" + std::to_string(m_scene->port()),
                                      "--session",
                                      "5",
                                      "--printer",
                                      "Laser-2"};
  command.insert(command.end(), program.begin(), program.end());
  return start(5, "", "state", command);
}

void HeldScene::makeKnown(int session) {
  startClient(session).reset();
  m_scene->server().waitForLine("session " + std::to_string(session) + ": the print client has gone");
  // So that the next server knows it, too.
  if (!comesTrue([&] { return std::filesystem::exists(m_scene->folder() / "held" / "sessions"); }, 60)) {
    throw std::runtime_error("the session is not kept");
  }
}

std::unique_ptr<MonitorPeer> HeldScene::begin(const std::wstring& document, const std::string& data, int session) {
  auto peer = std::make_unique<MonitorPeer>(m_scene->port(), corvane::Identity::monitor(), m_keys.path("monitor"));
  if (!peer->attach(printerOf(session))) return nullptr;
  peer->startJob({L"Laser-2 - Job #17", L"Laser-2", document, L"RAW"}, {1, 1, 1, 1});
  if (!data.empty()) peer->writeJob(data);
  return peer;
}

std::optional<int> HeldScene::print(const std::wstring& document, const std::string& data, int session) try {
  const auto peer = begin(document, data, session);
  if (!peer) return std::nullopt;
  return peer->endJob();
} catch (const CS_Exception&) {
  return std::nullopt;
}

std::vector<std::string> HeldScene::held(const std::string& suffix) const {
  std::vector<std::string> names;
  std::error_code failure;  // files come and go
  for (std::filesystem::directory_iterator at(m_scene->folder() / "held", failure), end; !failure && at != end;
       at.increment(failure)) {
    const std::string name = at->path().filename().string();
    if (name.ends_with(suffix)) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool HeldScene::awaitHeld(std::size_t count) const {
  return comesTrue([&] { return held().size() == count; }, 60);
}

void HeldScene::awaitAway(int session) const {
  AdministrationPeer tool = administration();
  const std::wstring away = std::to_wstring(session) + L" away:";
  const auto isAway = [&] {
    const auto sessions = tool.status().sessions;
    return std::any_of(sessions.begin(), sessions.end(), [&](const auto& line) { return line.starts_with(away); });
  };
  if (!comesTrue(isAway, 60)) throw std::runtime_error("session " + std::to_string(session) + " is not away");
}

std::filesystem::path HeldScene::other() const {
  return m_scene->folder() / "other-output";
}

std::vector<std::string> HeldScene::documents(int session) const {
  std::vector<std::string> list = contents(session);
  for (std::string& text : list) {
    if (text.size() > 100) text = std::to_string(text.size()) + " bytes";
  }
  return list;
}

std::vector<std::string> HeldScene::contents(int session) const {
  std::vector<std::string> contents;
  for (const std::string& name : m_scene->files(session)) {
    if (!name.starts_with(".")) contents.push_back(m_scene->content(session, name));
  }
  return contents;
}

AdministrationPeer::Job HeldScene::job(int number) const {
  AdministrationPeer tool = administration();
  for (const auto& job : tool.jobs(500)) {
    if (job.number == number) return job;
  }
  throw std::runtime_error("no job " + std::to_string(number));
}

void HeldScene::replaceKey(int session) {
  const std::string name = "session-" + std::to_string(session);
  std::filesystem::remove(m_keys.path(name));
  m_keys.make(name);
}

void HeldScene::restartServer() {
  m_scene->useLauncher({});
  m_scene->restartServer();
}

}  // namespace tests
