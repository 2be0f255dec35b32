#include "corvane/records/exception.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::AnyOf;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

// A job whose data have begun to arrive at the client when this returns.
void begin(MonitorPeer& peer, ChildProcess& client, int mode = 1) {
  ASSERT_TRUE(peer.attach(kLaserPrinter));
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
  client->waitForLines({"dropped \"Report\"",
                        "the server says why a job for \"Laser-2\" was not printed: the print spooler of the server "
                        "left before the job's "
                        "end. Print again; when that fails too, the port monitor's log on the server says more."});
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
  ASSERT_TRUE(peer.attach(kLaserPrinter));
  peer.startJob({L"j", L"", L"Report", L""}, {1, 2, 3, 2});
  EXPECT_EQ(peer.endJob(), -1);
  EXPECT_THAT(scene.files(5), IsEmpty());
}

CS_Notice failureOf(const std::wstring& printer, const std::wstring& document) {
  return {L"job",
          L"Job 17 failed",
          {{L"printer", printer},
           {L"document", document},
           {L"result", L"failed"},
           {L"cause", L"normalizer log: Ghostscript: undefined in bar"},
           {L"remedy", L"Mend the document."}}};
}

TEST(Failures, WhyAJobFailedReachesTheClientThatItWasForAndNoOther) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2,format=pdf"});
  const auto other = scene.startClient(6, {"Laser-2,format=pdf"});
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.attach(kLaserPrinter));
  peer.startJob({L"j", L"Laser-2", L"Report", L""}, {1, 2, 3, 2});
  EXPECT_EQ(peer.endJob(), -1);
  client->waitForLine("not printed \"Report\": no data came; ");
  peer.notify(1234, L"spoolsv", failureOf(kLaserPrinter, L"Report"));
  client->waitForLine(
      "the server says why \"Report\" for \"Laser-2\" was not printed: normalizer log: Ghostscript: undefined in bar. "
      "Mend the document.");
  // The other one has had no job of its own yet, and then hears of that one only.
  peer.notify(1234, L"spoolsv", failureOf(L"Laser-2 (session 6)", L"early"));
  peer.printerList(6);  // answered when the server has read what was sent before
  MonitorPeer second(scene.port());
  ASSERT_TRUE(second.attach(L"Laser-2 (session 6)"));
  second.notify(1234, L"spoolsv", failureOf(L"Laser-2 (session 6)", L"own"));
  other->waitForLine("the server says why \"own\"");
  EXPECT_THAT(other->output(), Not(AnyOf(HasSubstr("\"Report\""), HasSubstr("\"early\""))));
  EXPECT_THAT(client->output(), Not(AnyOf(HasSubstr("\"own\""), HasSubstr("\"early\""))));
}

TEST(Failures, APrinterThatCannotBeHadIsSaidAtItsClientOnly) {
  Scene scene;
  const auto client = scene.startClient(5, {"\\\\server\\laser"});
  const auto other = scene.startClient(6, {"Ink"});
  MonitorPeer peer(scene.port());
  CS_Notice notice = failureOf(L"--server-laser (session 5)", L"");
  notice.kind = L"printer";
  notice.values[2].second = L"refused";
  peer.notify(1234, L"mgprintmon", notice);
  client->waitForLine(
      "\"\\\\server\\laser\" is not a printer on the server: normalizer log: Ghostscript: undefined in bar. Mend the "
      "document.");
  EXPECT_THAT(other->output(), Not(HasSubstr("laser")));
}

TEST(Failures, ACutPdfIsNotPrinted) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2,format=pdf"});
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.attach(kLaserPrinter));
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
