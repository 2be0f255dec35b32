#include "tests/processes/job_round.h"

#include "tests/processes/process_table.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <signal.h>
#include <sstream>
#include <stdexcept>

namespace tests {

namespace fs = std::filesystem;

namespace {

constexpr int kWaitSeconds = 60;
const std::string kNext = "next";  // the name of the document behind the round's own
constexpr int kTidySeconds = 60;
constexpr std::size_t kSmall = 70000;
constexpr std::size_t kLarge = 20000000;  // far more than there is room for on the way

int sessionOf(int stage) {
  return 10 + stage;
}

std::string inParentheses(int stage) {
  return "(session " + std::to_string(sessionOf(stage)) + ")";
}

std::string linesWith(const std::string& text, const std::vector<std::string>& any) {
  std::istringstream lines(text);
  std::string found;
  for (std::string line; std::getline(lines, line);) {
    for (const std::string& word : any) {
      if (line.find(word) != std::string::npos) {
        found += line + "\n";
        break;
      }
    }
  }
  return found;
}

}  // namespace

// How a job comes to its stage.
struct JobRound::Plan {
  std::string holdHostAfter;
  std::string holdClientAt;
  int gatePoint = 0;
  std::size_t pattern = 0;  // 0: the gate's document
  bool converted = true;
};

JobRound::Plan JobRound::planOf(int stage) const {
  if (m_victim == Part::kConverter || m_victim == Part::kGhostscript) return {"", "", stage, 0, true};
  switch (stage) {
    case 1:
      return {"OpenPort", "", 0, 0, true};
    case 2:
      return {"StartDocPort", "", 0, 0, true};
    case 3:
      return {"WritePort", "", 0, kSmall, false};
    case 4:
      return {"", "write", 0, kLarge, false};
    case 5:
      return {"LastWrite", "", 0, kSmall, false};
    case 6:
      return {"", "", 4, 0, true};
    case 7:
      return {"", "write", 0, kLarge, true};
    default:
      return {"", m_desk->lastCall(), 0, 0, true};
  }
}

JobRound::JobRound(Part victim, int number, std::unique_ptr<JobDesk> desk)
    : m_victim(victim),
      m_number(number),
      m_desk(std::move(desk)),
      m_scene(sceneOptions()),
      m_gate(m_scene.folder() / "gate") {
  startWine();
  m_earlier = m_wine->temporaryFiles();
  for (int stage = 1; stage <= kStages; ++stage) {
    m_clients[stage] = startClient(stage);
    m_gate.holdAt(sessionOf(stage), planOf(stage).gatePoint);
  }
}

std::vector<std::string> JobRound::sceneOptions() const {
  std::vector<std::string> options = m_desk->serverOptions();
  options.insert(options.end(), {"--state", "{folder}/aps.state", "--client-wait", "20"});
  return options;
}

JobRound::~JobRound() {
  for (const pid_t process : m_stopped)
    kill(process, SIGCONT);
  for (const auto& [stage, client] : m_clients)
    client->signal(SIGCONT);
}

std::unique_ptr<ChildProcess> JobRound::startClient(int stage) {
  std::vector<std::string> command = m_desk->clientCommand(m_scene, sessionOf(stage));
  const std::vector<std::string> front = {"/usr/bin/env", "LD_PRELOAD=" + Scene::program("libmg_held_calls.so"),
                                          "MG_HOLD_AT=" + planOf(stage).holdClientAt};
  command.insert(command.begin(), front.begin(), front.end());
  auto client = std::make_unique<ChildProcess>(command);
  client->waitForLine("ready: ");
  return client;
}

void JobRound::begin() {
  for (int stage = 1; stage <= kStages; ++stage) {
    const Plan plan = planOf(stage);
    const std::string port = "CPP" + std::to_string(sessionOf(stage));
    std::vector<std::string> arguments = {"--port",          port,
                                          "--printer",       (plan.converted ? "Pdf " : "Raw ") + inParentheses(stage),
                                          "--document",      document(stage),
                                          "--job",           std::to_string(stage),
                                          "--stand-in-queue"};
    if (plan.pattern > 0) {
      arguments.insert(arguments.end(), {"--pattern", std::to_string(plan.pattern)});
    } else {
      arguments.insert(arguments.end(), {"--file", WineHost::windowsPath(m_gate.document())});
    }
    if (!plan.holdHostAfter.empty()) arguments.insert(arguments.end(), {"--hold-after", plan.holdHostAfter});
    m_hosts[stage] = m_wine->start("port_host.exe", arguments, ChildProcess::Input::kLines);
  }
  for (int stage = 1; stage <= kStages; ++stage) {
    const Plan plan = planOf(stage);
    if (!plan.holdHostAfter.empty()) m_hosts[stage]->waitForLine("holding after " + plan.holdHostAfter);
    if (!plan.holdClientAt.empty()) {
      ASSERT_TRUE(waitUntilStopped(m_clients[stage]->id(), kWaitSeconds)) << "stage " << stage;
    }
    if (plan.gatePoint != 0) {
      ASSERT_NO_FATAL_FAILURE(awaitHeld(stage));
    }
  }
}

void JobRound::awaitHeld(int stage) {
  try {
    m_held[stage] = m_gate.waitUntilHeld(sessionOf(stage));
  } catch (const std::exception& failure) {
    const bool hasEnded = waitUntilEnded(m_hosts[stage]->id(), 1);
    FAIL() << "stage " << stage << ": " << failure.what() << "\nthe spooler "
           << (hasEnded ? "ended with " + std::to_string(m_hosts[stage]->wait()) : std::string("is at work"))
           << " and said:\n"
           << m_hosts[stage]->output() << log();
  }
}

std::vector<pid_t> JobRound::victims() const {
  std::vector<pid_t> found;
  switch (m_victim) {
    case Part::kServer:
      return {m_scene.server().id()};
    case Part::kHost:
      for (const auto& [stage, host] : m_hosts)
        found.push_back(host->id());
      return found;
    case Part::kClient:
      for (const auto& [stage, client] : m_clients)
        found.push_back(client->id());
      return found;
    case Part::kPrinter:
      for (int stage = 1; stage <= kStages; ++stage)
        found.push_back(m_desk->printer(sessionOf(stage))->id());
      return found;
    case Part::kGhostscript:
      for (const auto& [stage, process] : m_held)
        found.push_back(process);
      return found;
    case Part::kConverter:
      for (const Process& process : processesWith(WineHost::windowsPath(m_scene.folder() / "root"))) {
        if (process.command.find("ps2pdf.exe") != std::string::npos) found.push_back(process.id);
      }
      return found;
  }
  return found;
}

void JobRound::signal(int number) {
  const std::vector<pid_t> processes = victims();
  ASSERT_EQ(processes.size(), m_victim == Part::kServer ? 1u : static_cast<std::size_t>(kStages));
  for (const pid_t process : processes)
    ASSERT_EQ(kill(process, number), 0);
  if (number == SIGSTOP) m_stopped = processes;
  if (number != SIGKILL) return;
  if (m_victim == Part::kServer) m_scene.server().wait();
  if (m_victim == Part::kClient) {
    for (const auto& [stage, client] : m_clients)
      client->wait();
  }
  if (m_victim == Part::kHost) {
    for (const auto& [stage, host] : m_hosts) {
      host->wait();
      m_hostSaid[stage] = host->output();
    }
    m_hosts.clear();
  }
}

void JobRound::goOn() {
  for (const pid_t process : m_stopped)
    kill(process, SIGCONT);
  m_stopped.clear();
  letGo();
}

void JobRound::restart() {
  if (m_victim == Part::kServer) {
    m_said += m_scene.server().output();
    m_scene.restartServer();
  }
  if (m_victim == Part::kClient) {
    for (auto& [stage, client] : m_clients) {
      m_said += client->output();
      client.reset();
      client = startClient(stage);
    }
  }
  if (m_victim == Part::kPrinter) restartPrinters();
}

void JobRound::restartPrinters() {
  for (int stage = 1; stage <= kStages; ++stage)
    m_desk->restartPrinter(sessionOf(stage));
}

void JobRound::letGo() {
  for (int stage = 1; stage <= kStages; ++stage) {
    const Plan plan = planOf(stage);
    if (!plan.holdHostAfter.empty() && hasHost(stage)) m_hosts[stage]->say("go on");
    const auto isStopped = [this](Part part) { return m_victim == part && !m_stopped.empty(); };
    if (!plan.holdClientAt.empty() && !isStopped(Part::kClient)) m_clients[stage]->signal(SIGCONT);
    if (plan.gatePoint != 0 && !isStopped(Part::kGhostscript)) m_gate.open(sessionOf(stage));
  }
}

void JobRound::startWine() {
  m_wine.reset();
  m_wine = std::make_unique<WineHost>(m_scene);
  m_wine->useServer(m_scene.port(), m_desk->monitorKey());
  m_wine->useGhostscript(m_gate.program(), kConverterSeconds);
}

void JobRound::awaitHosts(int seconds, int firstStage) {
  if (m_hosts.empty()) {
    // Wine's server may keep the sockets of a process that is killed inside a send, which Windows does not. It would
    // take the converter along.
    expectNoProcessLeft();
    startWine();
  }
  for (auto& [stage, host] : m_hosts) {
    if (stage < firstStage) continue;
    if (!waitUntilEnded(host->id(), seconds)) {
      ADD_FAILURE() << "stage " << stage << ": the call of the host does not return:\n" << host->output();
      host->signal(SIGKILL);
    }
    m_printed[stage] = host->wait() == 0;
    m_hostSaid[stage] = host->output();
  }
  if (m_stopped.empty()) m_desk->settle();
}

std::string JobRound::log() const {
  return m_wine->log();
}

std::string JobRound::failureOf(int stage) {
  std::string all = m_said + m_scene.server().output() + log();
  for (const auto& [other, client] : m_clients)
    all += client->output();
  const std::string about = linesWith(all, {"\"" + document(stage) + "\"", inParentheses(stage)});
  return linesWith(about, {"failed", "cut", "dropped", "not printed", "refused"});
}

std::vector<std::string> JobRound::queueActions(int stage) {
  const std::string front = "queue: job " + std::to_string(stage) + " ";
  std::vector<std::string> actions;
  std::istringstream lines(m_hostSaid[stage]);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.starts_with("queue: ")) actions.push_back(line.starts_with(front) ? line.substr(front.size()) : line);
  }
  return actions;
}

std::vector<std::string> JobRound::owedQueueActions(int stage) {
  if (!hasHost(stage)) return {};
  const std::string& said = m_hostSaid[stage];
  if (said.find("StartDocPort failed") != std::string::npos) return {"deleted"};
  if (said.find("WritePort failed") != std::string::npos) return {"deleted", "marked sent"};
  return {"marked sent"};
}

bool JobRound::isKnown(int stage) {
  return comesTrue([&] { return !failureOf(stage).empty() || arrived(stage) != "nothing"; }, kTidySeconds);
}

std::string JobRound::arrived(int stage) {
  const Plan plan = planOf(stage);
  std::string found = "nothing";
  for (const auto& [name, content] : m_desk->documents(m_scene, sessionOf(stage))) {
    if (name.starts_with(kNext)) continue;
    if (found != "nothing") return "more than one document: " + name;
    const bool isWhole =
        plan.pattern > 0 ? content == WineHost::pattern(plan.pattern) : GhostscriptGate::isWhole(content);
    const std::string extension = plan.pattern > 0 ? ".prn" : ".pdf";
    if (!isWhole || name != document(stage) + extension) {
      return "not the document: " + name + " with " + std::to_string(content.size()) + " bytes";
    }
    found = "the document";
  }
  return found;
}

void JobRound::expectNoProcessLeft() const {
  const std::array texts = {m_gate.program().string(), WineHost::windowsPath(m_scene.folder() / "root")};
  const auto processes = [&texts] {
    std::vector<Process> found;
    for (const std::string& text : texts) {
      for (const Process& process : processesWith(text))
        found.push_back(process);
    }
    return found;
  };
  // A converter that was killed leaves its Ghostscript to its time limit at the latest.
  const auto isOver = [&] { return processes().empty() || m_wine->serverHasFallen(); };
  comesTrue(isOver, kConverterSeconds + 15);
  for (const Process& process : processes()) {
    // What Wine's server takes along is none of ours; the host's programs have nobody left who ends them.
    if (m_wine->serverHasFallen()) {
      kill(process.id, SIGKILL);
    } else {
      ADD_FAILURE() << "left behind: process " << process.id << ", " << process.command;
    }
  }
}

void JobRound::expectNothingLeft() {
  expectNoProcessLeft();
  m_desk->settle();
  for (int stage = 1; stage <= kStages; ++stage) {
    EXPECT_THAT(arrived(stage), ::testing::AnyOf("nothing", "the document")) << "stage " << stage;
    // A client drops its job when it hears of the end.
    const auto isTidy = [&] {
      const std::vector<std::string> names = m_scene.files(sessionOf(stage));
      return std::none_of(names.begin(), names.end(), [](const std::string& name) { return name.ends_with(".part"); });
    };
    EXPECT_TRUE(comesTrue(isTidy, kTidySeconds)) << "stage " << stage;
  }
  for (const std::string& name : m_wine->temporaryFiles()) {
    const bool isEarlier = std::find(m_earlier.begin(), m_earlier.end(), name) != m_earlier.end();
    EXPECT_TRUE(isEarlier) << "left behind: " << name;
  }
}

void JobRound::age() {
  int count = 0;
  for (const fs::path& path : m_wine->temporaryPaths()) {
    if (!path.filename().string().starts_with("Pdf (session ")) continue;
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(48));
    ++count;
  }
  EXPECT_GT(count, 0);
}

void JobRound::expectNextJobPrints() {
  constexpr int kStage = 1;
  m_gate.holdAt(sessionOf(kStage), 0);
  const std::string name = kNext + std::to_string(m_number);
  const auto host = m_wine->start("port_host.exe", {"--port", "CPP" + std::to_string(sessionOf(kStage)), "--printer",
                                                    "Pdf " + inParentheses(kStage), "--document", name, "--file",
                                                    WineHost::windowsPath(m_gate.document())});
  ASSERT_TRUE(waitUntilEnded(host->id(), kWaitSeconds));
  EXPECT_EQ(host->wait(), 0) << host->output() << log();
  m_desk->settle();
  int count = 0;
  for (const JobDesk::Document& one : m_desk->documents(m_scene, sessionOf(kStage)))
    count += one.name == name + ".pdf" && GhostscriptGate::isWhole(one.content) ? 1 : 0;
  EXPECT_EQ(count, 1);
}

}  // namespace tests
