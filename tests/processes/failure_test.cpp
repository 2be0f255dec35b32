#include "corvane/exception.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::wstring kPrinter = L"Laser-2 (session 5)";

// A job whose data have begun to arrive at the client when this returns.
void begin(MonitorPeer& peer, ChildProcess& client, int mode = 1) {
  ASSERT_TRUE(peer.attach(kPrinter));
  peer.startJob({L"Laser-2 - Job #17", L"Laser-2", L"Report", L"RAW"}, {1, 1, 1, mode});
  peer.writeJob("the beginning");
  client.waitForLine("receiving \"Report\"");
}

// What a monitor would report for the job: only a positive answer counts as printed.
bool isPrinted(MonitorPeer& peer) {
  try {
    peer.writeJob("the rest");
    return peer.endJob() > 0;
  } catch (const CS_Exception&) {
    return false;
  }
}

TEST(Failures, AKilledClientPrintsNothingAndItsLeftoversGoWithTheNextOne) {
  Scene scene;
  auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer peer(scene.port());
  begin(peer, *client);
  client->signal(SIGKILL);
  client->wait();
  scene.server().waitForLine("session 5: the print client has gone");
  EXPECT_THAT(
      scene.server().waitForLine("job cut: "),
      ContainsRegex("job cut: printer \"Laser-2 .session 5.\", session 5, process 1234: [0-9]+ bytes passed on; "
                    "the session's print client has gone before its end.*; start it and print again"));
  EXPECT_FALSE(isPrinted(peer));
  EXPECT_THAT(scene.files(5), SizeIs(1));
  ChildProcess next(scene.clientCommand(5, {"Laser-2"}));
  next.waitForLine("removed 1 unfinished file that an earlier print client left behind in the folder");
  EXPECT_THAT(scene.files(5), IsEmpty());
}

TEST(Failures, AKilledServerPrintsNothing) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer peer(scene.port());
  begin(peer, *client);
  scene.server().signal(SIGKILL);
  scene.server().wait();
  EXPECT_FALSE(isPrinted(peer));
  client->waitForLine("dropped \"Report\": the job was cut after ");
  EXPECT_THAT(scene.files(5), IsEmpty());
}

TEST(Failures, AStoppedClientDropsItsUnfinishedJob) {
  for (const int number : {SIGINT, SIGTERM}) {
    Scene scene;
    const auto client = scene.startClient(5, {"Laser-2"});
    MonitorPeer peer(scene.port());
    begin(peer, *client);
    client->signal(number);
    EXPECT_EQ(client->wait(), 0) << client->output();
    EXPECT_FALSE(isPrinted(peer));
    EXPECT_THAT(scene.files(5), IsEmpty());
    client->waitForLine("dropped \"Report\"");
  }
}

TEST(Failures, AJobThatItsMonitorLeavesIsDroppedAndTheNextOnePrints) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  {
    MonitorPeer peer(scene.port());
    begin(peer, *client);
  }
  EXPECT_THAT(scene.server().waitForLine("job cut: printer \"Laser-2 (session 5)\", session 5, process 1234: "),
              HasSubstr("the port monitor left before its end; its log says what failed there, then print again"));
  client->waitForLine("dropped \"Report\"");
  EXPECT_THAT(scene.files(5), IsEmpty());
  MonitorPeer peer(scene.port());
  begin(peer, *client);
  EXPECT_TRUE(isPrinted(peer));
  EXPECT_EQ(scene.content(5, "Report.txt"), "the beginningthe rest");
}

TEST(Failures, AFullDiskIsANegativeAnswerAndTheClientGoesOn) {
  Scene scene;
  std::string command = "ulimit -f 16; exec";
  for (const std::string& word : scene.clientCommand(5, {"Laser-2"}))
    command += " '" + word + "'";
  ChildProcess client({"/bin/sh", "-c", command});
  client.waitForLine("ready: ");
  {
    MonitorPeer peer(scene.port());
    begin(peer, client);
    for (int i = 0; i < 100; ++i)
      peer.writeJob(std::string(40000, 'x'));
    EXPECT_EQ(peer.endJob(), -2);
  }
  client.waitForLine(
      "not printed \"Report\": cannot write: File too large (printer \"Laser-2\", session 5); see that the "
      "folder ");
  EXPECT_THAT(scene.files(5), IsEmpty());
  MonitorPeer peer(scene.port());
  begin(peer, client);
  EXPECT_TRUE(isPrinted(peer));
}

TEST(Failures, AConvertedJobWithoutDataIsNotPrinted) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2,format=pdf"});
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.attach(kPrinter));
  peer.startJob({L"j", L"", L"Report", L""}, {1, 2, 3, 2});
  EXPECT_EQ(peer.endJob(), -1);
  EXPECT_THAT(scene.files(5), IsEmpty());
}

TEST(Failures, ACutPdfIsNotPrinted) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2,format=pdf"});
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.attach(kPrinter));
  peer.startJob({L"j", L"", L"Report", L""}, {1, 2, 3, 2});
  peer.writeJob("%PDF-1.4 and not its end");
  EXPECT_EQ(peer.endJob(), -3);
  EXPECT_THAT(scene.files(5), IsEmpty());
}

TEST(Failures, AnEndWithoutStartAndASecondEndAreRefused) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer peer(scene.port());
  begin(peer, *client);
  EXPECT_EQ(peer.endJob(), 1);
  EXPECT_EQ(peer.endJob(), -4);
  client->waitForLine(
      "not printed \"Laser-2 - Job #17\": the end of a job came without its start (session 5); print again");
  EXPECT_THAT(scene.files(5), ElementsAre("Report.txt"));
}

TEST(Failures, APieceThatIsShorterThanItSaysSpoilsTheJob) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  for (const std::string piece : {"abc", ""}) {
    MonitorPeer peer(scene.port());
    begin(peer, *client);
    peer.writeBrokenPiece(piece, 5);
    EXPECT_EQ(peer.endJob(), -5) << piece;
  }
  EXPECT_THAT(scene.files(5), IsEmpty());
}

}  // namespace
}  // namespace tests
