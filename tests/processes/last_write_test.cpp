// The print client dies when it has been sent everything, before it has answered the end of the job: nothing of that is
// ever reported as printed, and nothing of it is there under a document's name.

#include "corvane/records/exception.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_table.h"
#include "tests/processes/scene.h"
#include "tests/support/sanitized.h"

#include <cstdio>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

int numberOfRuns() {
  if (std::getenv("MG_LONG_TESTS") != nullptr) return 1000;
  return kSanitized ? 6 : 20;
}

// Only a positive answer counts as printed.
bool endsAsPrinted(MonitorPeer& peer) {
  try {
    return peer.endJob() > 0;
  } catch (const CS_Exception&) {
    return false;
  }
}

std::vector<std::string> documents(const Scene& scene) {
  std::vector<std::string> names;
  for (const std::string& name : scene.files(5)) {
    if (!name.starts_with(".")) names.push_back(name);
  }
  return names;
}

std::unique_ptr<ChildProcess> startClient(const Scene& scene, bool heldAtItsDisk) {
  std::vector<std::string> command = scene.clientCommand(5, {"Laser-2"});
  if (heldAtItsDisk) {
    const std::vector<std::string> front = {"/usr/bin/env", "LD_PRELOAD=" + Scene::program("libmg_held_calls.so"),
                                            "MG_HOLD_AT=fsync"};
    command.insert(command.begin(), front.begin(), front.end());
  }
  auto client = std::make_unique<ChildProcess>(command);
  client->waitForLine("ready: ");
  return client;
}

TEST(LastWrite, AClientThatDiesAfterItIsNeverReportedAsPrinted) {
  Scene scene;
  int reported = 0;
  const int runs = numberOfRuns();
  for (int run = 0; run < runs && !::testing::Test::HasFailure(); ++run) {
    // By turns before the end is sent, and when the client has everything but has not brought it to the disk.
    const bool atItsDisk = run % 2 == 1 && !kSanitized;
    const auto client = startClient(scene, atItsDisk);
    MonitorPeer peer(scene.port());
    ASSERT_TRUE(peer.attach(L"Laser-2 (session 5)")) << "run " << run;
    peer.startJob({L"j", L"Laser-2", L"Report", L"RAW"}, {1, 1, 1, 1});
    peer.writeJob(std::string(50000, 'x'));
    peer.writeJob("the last of it");
    std::future<bool> ended;
    if (atItsDisk) {
      ended = std::async(std::launch::async, [&] { return endsAsPrinted(peer); });
      ASSERT_TRUE(waitUntilStopped(client->id(), 60)) << "run " << run;
    }
    client->signal(SIGKILL);
    client->wait();
    reported += (ended.valid() ? ended.get() : endsAsPrinted(peer)) ? 1 : 0;
    ASSERT_EQ(reported, 0) << "run " << run;
    EXPECT_THAT(documents(scene), IsEmpty()) << "run " << run;
    EXPECT_THAT(scene.server().waitForLine("job cut: "),
                HasSubstr("the session's print client has gone before its end"));
  }
  std::printf("last write: %d runs, %d reported as printed\n", runs, reported);
  const auto next = startClient(scene, false);
  EXPECT_THAT(scene.files(5), IsEmpty()) << "what the others left behind";
}

}  // namespace
}  // namespace tests
