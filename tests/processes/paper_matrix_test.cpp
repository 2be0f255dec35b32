// Jobs over TLS to a printer, one of whose processes is killed or stopped at each stage: what is reported as printed
// comes out, once, and what comes out does not come out twice.

#include "corvane/records/exception.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/paper/virtual_printer.h"

#include <gtest/gtest.h>
#include <optional>
#include <signal.h>
#include <thread>

namespace tests {
namespace {

using corvane::Identity;

enum class Victim { kServer, kClient, kPrinter };
enum class Stage { kAttached, kBegun, kWritten, kAnswered };

const std::string kPage = "%!PS-Adobe-3.0\n%%Pages: 1\n%%EOF\nshowpage\n";

class PaperMatrix : public ::testing::Test {
 protected:
  PaperMatrix() : m_address("127.0.0.1:" + std::to_string(PaperPlace::freePort())) {
    m_keys.make("monitor");
    m_keys.make("session-5");
    std::vector<std::string> options = m_keys.serverOptions();
    options.insert(options.end(), {"--listen-clients", m_address, "--client-wait", "20", "--pace", "10"});
    m_scene.emplace(options);
    m_printer.emplace(m_place);
    startClient();
  }

  void startClient() {
    m_client = std::make_unique<ChildProcess>(std::vector<std::string>{
        Scene::program("printclient"), "--server", m_address, "--tls", "--session", "5", "--key",
        m_keys.path("session-5"), "--printer", "Desk,uri=" + m_printer->uri(), "--pace", "10"});
    m_client->waitForLine("ready: ");
  }

  std::unique_ptr<MonitorPeer> attach() const {
    auto peer = std::make_unique<MonitorPeer>(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer->attach(L"Desk (session 5)"));
    return peer;
  }
  static void begin(MonitorPeer& peer, const std::wstring& title) {
    peer.startJob({L"j", L"Desk", title, L"RAW"}, {1, 1, 1, 1});
    peer.writeJob(kPage.substr(0, 20));
  }

  // Prints a document, with what happens at that stage; whether it was reported as printed.
  template <class Happens>
  bool print(const std::wstring& title, Stage stage, Happens happens) const {
    try {
      const auto peer = attach();
      if (stage == Stage::kAttached) happens();
      begin(*peer, title);
      if (stage == Stage::kBegun) happens();
      peer->writeJob(kPage.substr(20));
      if (stage == Stage::kWritten) happens();
      const bool isPrinted = peer->endJob() == 1;
      if (stage == Stage::kAnswered) happens();
      return isPrinted;
    } catch (const CS_Exception&) {
      return false;
    }
  }

  ChildProcess& process(Victim victim) {
    if (victim == Victim::kServer) return m_scene->server();
    return victim == Victim::kClient ? *m_client : m_printer->process();
  }
  void kill(Victim victim) {
    if (victim == Victim::kPrinter) return m_printer->switchOff();
    process(victim).signal(SIGKILL);
    EXPECT_EQ(process(victim).wait(), 256 + SIGKILL);
  }
  // As an administrator, or the person, would see to.
  void bringBack(Victim victim) {
    if (victim == Victim::kPrinter) return m_printer->switchOn();
    if (victim == Victim::kClient) return startClient();
    m_scene->restartServer();
    m_client->waitForLine("ready: ");
  }

  int cameOut(const std::string& title) const {
    int count = 0;
    for (std::size_t job = 0; job < m_printer->printed().size(); ++job)
      count += m_printer->said(job, "IPP_JOB_NAME") == title ? 1 : 0;
    return count;
  }
  // A job behind the other one: when it has come out, whatever the other one may become has, too.
  void printControl(const std::string& title) {
    EXPECT_TRUE(print(std::wstring(title.begin(), title.end()), Stage::kAttached, [] {}));
    PaperPlace::waitUntil(title, [&] { return cameOut(title) == 1; });
  }

  const PaperPlace m_place;
  const Keys m_keys;
  const std::string m_address;
  std::optional<Scene> m_scene;
  std::optional<VirtualPrinter> m_printer;
  std::unique_ptr<ChildProcess> m_client;
};

constexpr Victim kVictims[] = {Victim::kServer, Victim::kClient, Victim::kPrinter};
constexpr Stage kStages[] = {Stage::kAttached, Stage::kBegun, Stage::kWritten, Stage::kAnswered};

TEST_F(PaperMatrix, OfAKilledProcessNothingIsReportedAsPrintedThatDoesNotComeOutAndNothingComesOutTwice) {
  for (const Victim victim : kVictims) {
    for (const Stage stage : kStages) {
      const std::string of = std::to_string(static_cast<int>(victim)) + std::to_string(static_cast<int>(stage));
      const bool isPrinted = print(std::wstring(L"Victim ") + std::wstring(of.begin(), of.end()), stage, [&] {
        // A printer that is killed with a job in its queue has lost it; that is told later.
        const bool isInTray = victim == Victim::kPrinter && stage == Stage::kAnswered;
        if (isInTray) PaperPlace::waitUntil("the page", [&] { return cameOut("Victim " + of) == 1; });
        kill(victim);
      });
      EXPECT_EQ(isPrinted, stage == Stage::kAnswered) << of;
      bringBack(victim);
      printControl("Control " + of);
      EXPECT_EQ(cameOut("Victim " + of), isPrinted ? 1 : 0) << of;
    }
  }
}

TEST_F(PaperMatrix, OfAProcessThatStopsForAWhileEveryJobComesOutOnce) {
  for (const Victim victim : kVictims) {
    for (const Stage stage : kStages) {
      const std::string of = std::to_string(static_cast<int>(victim)) + std::to_string(static_cast<int>(stage));
      std::thread goesOn;
      const bool isPrinted = print(std::wstring(L"Victim ") + std::wstring(of.begin(), of.end()), stage, [&] {
        process(victim).signal(SIGSTOP);
        goesOn = std::thread([&] {
          std::this_thread::sleep_for(std::chrono::milliseconds(300));
          process(victim).signal(SIGCONT);
        });
      });
      goesOn.join();
      EXPECT_TRUE(isPrinted) << of;
      printControl("Control " + of);
      EXPECT_EQ(cameOut("Victim " + of), 1) << of;
    }
  }
}

TEST_F(PaperMatrix, WhatASpoolerHasNotBroughtToItsEndDoesNotComeOut) {
  for (const Stage stage : {Stage::kAttached, Stage::kBegun, Stage::kWritten}) {
    const std::string of = std::to_string(static_cast<int>(stage));
    // Its process is gone, and with it the connection.
    EXPECT_FALSE(print(std::wstring(L"Victim ") + std::wstring(of.begin(), of.end()), stage,
                       [] { throw CS_Exception(0, L"killed"); }));
    printControl("Control " + of);
    EXPECT_EQ(cameOut("Victim " + of), 0) << of;
  }
}

// As the machine of the person does that sleeps and wakes up: longer than the server waits for a sign of life.
TEST_F(PaperMatrix, AClientThatHasSleptForLongComesBackByItselfAndPrints) {
  m_client->signal(SIGSTOP);
  m_scene->server().waitForLine("session 5: the print client has gone");
  m_client->signal(SIGCONT);
  m_client->waitForLine("the connection to the server is lost");
  m_client->waitForLine("ready: ");
  printControl("Control");
}

}  // namespace
}  // namespace tests
