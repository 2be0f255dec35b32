// aps does without the thread of a print client that says nothing. Whatever fails when it needs one again: the job
// prints, and aps ends when it is told to.

#include "tests/processes/armed_failures.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_watch.h"
#include "tests/processes/scene.h"
#include "tests/support/sanitized.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace tests {
namespace {

constexpr int kSession = 5;

class Parking : public ::testing::Test {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "nothing can be loaded in front of a sanitized program";
    m_scene.useLauncher(m_failures.launcher());
    m_scene.restartServer();
    m_withoutClient = threads();
    m_client = m_scene.startClient(kSession, {"Laser,format=raw"});
    awaitParked();
  }

  std::size_t threads() const { return heldBy(m_scene.server().id()).threads; }
  // The client's connection may have made the thread for its signs of life.
  void awaitParked() const {
    std::size_t now = threads();
    for (int same = 0; same < 20; ++same) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      if (const std::size_t next = threads(); next != now) {
        now = next;
        same = 0;
      }
    }
  }

  int print() const {
    MonitorPeer peer(m_scene.port());
    const std::wstring printer = L"Laser (session 5)";
    if (!peer.printerInfo(printer) || !peer.attach(printer)) return -1;
    peer.startJob({L"job", L"Laser", L"Report", L"RAW"}, {1, 1, 1, 1});
    peer.writeJob("\x1B page");
    const int result = peer.endJob(15000);  // sooner than the silence is noticed, which gives it a thread as well
    EXPECT_EQ(m_scene.content(kSession, "Report.prn"), "\x1B page");
    std::filesystem::remove(m_scene.output(kSession) / "Report.prn");
    return result;
  }

  Scene m_scene;
  ArmedFailures m_failures{m_scene.folder()};
  std::size_t m_withoutClient = 0;
  std::unique_ptr<ChildProcess> m_client;
};

TEST_F(Parking, AJobWhoseClientGetsNoThreadPrintsAsSoonAsThereIsOne) {
  EXPECT_LE(threads(), m_withoutClient + 1) << "one beats, none serves the client";
  m_failures.arm(FailingCalls::kThread, 2);  // behind that of the job's connection
  EXPECT_EQ(print(), 1);
  EXPECT_TRUE(m_failures.disarm());
  EXPECT_EQ(print(), 1);
}

TEST_F(Parking, AServerThatGetsNoThreadForAParkedClientEndsAllTheSame) {
  m_failures.arm(FailingCalls::kThread, 1);
  m_scene.server().signal(SIGTERM);
  EXPECT_EQ(m_scene.server().wait(), 0);
  EXPECT_TRUE(m_failures.disarm());
}

}  // namespace
}  // namespace tests
