// An application server that may have few descriptors.

#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_table.h"
#include "tests/processes/scene.h"
#include "tests/support/sanitized.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <thread>
#include <vector>

namespace tests {
namespace {

// A connection as soon as the server has a descriptor for it again.
std::unique_ptr<MonitorPeer> dialUntilServed(const Scene& scene) {
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  for (;;) {
    try {
      auto peer = std::make_unique<MonitorPeer>(scene.port());
      if (peer->attach(kLaserPrinter)) return peer;
    } catch (const CS_Exception&) {
      if (std::chrono::steady_clock::now() > giveUp) throw;
    }
    std::this_thread::yield();
  }
}

// It has 24 at all, of which seven are taken from the beginning, and would serve twelve connections.
TEST(Descriptors, WhenThereAreNoneItSaysSoKeepsWhomItServesAndServesOthersOnceThereAreSome) {
  if (kAddressSanitized)
    GTEST_SKIP() << "the sanitizers look at memory through a pipe, for which there is no descriptor either";
  Scene scene({}, {"/bin/sh", "-c",
                   "exec 3</dev/null 4</dev/null 5</dev/null 6</dev/null 7</dev/null 8</dev/null 9</dev/null; "
                   "ulimit -n 24; exec \"$@\"",
                   "sh"});
  // The log has a thread of its own, so this line may come before or after the one that the server listens.
  const std::string shortage =
      " this process may have only 24 descriptors instead of 1232: it serves at most 12 connections; raise the limit "
      "on "
      "open files of its account (ulimit -n, LimitNOFILE=) and start it again\n";
  EXPECT_TRUE(comesTrue([&] { return scene.server().output().find(shortage) != std::string::npos; }, 60))
      << scene.server().output();
  const auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer job(scene.port());
  ASSERT_TRUE(job.attach(kLaserPrinter));
  job.startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 1});
  job.writeJob("hel");
  std::vector<corvane::Socket> silent;
  for (int i = 0; i < 20; ++i)
    silent.push_back(corvane::Socket::connect("127.0.0.1", static_cast<std::uint16_t>(scene.port()), false));
  scene.server().waitForLine(
      " a connection was turned away: Too many open files; raise the limit on open files (ulimit -n, LimitNOFILE=), or "
      "end connections");
  job.writeJob("lo");
  EXPECT_EQ(job.endJob(), 1);
  EXPECT_EQ(scene.content(5, "Report.txt"), "hello");
  silent.clear();
  const auto next = dialUntilServed(scene);
  next->startJob({L"j", L"", L"Next", L""}, {1, 1, 1, 1});
  next->writeJob("there");
  EXPECT_EQ(next->endJob(), 1);
  EXPECT_EQ(scene.content(5, "Next.txt"), "there");
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
}

}  // namespace
}  // namespace tests
