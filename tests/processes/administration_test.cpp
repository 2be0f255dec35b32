#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

CS_Notice deliveredJob() {
  return {L"job", L"\"Report\" was delivered", {{L"printer", L"Laser-2 (session 5)"}, {L"result", L"delivered"}}};
}

// Asks again and again, because the longest wait of one question may pass on a machine that is busy.
AdministrationPeer::Notices waitForNotice(AdministrationPeer& tool, int after) {
  for (;;) {
    auto notices = tool.notices(after, 5000);
    if (!notices.list.empty()) return notices;
  }
}

TEST(Administration, ARunningServerTellsItsSessionsAndTheirPrinters) {
  Scene scene;
  AdministrationPeer tool(scene.port());
  EXPECT_THAT(tool.status().sessions, IsEmpty());
  const auto first = scene.startClient(7, {"Plotter"});
  auto second = scene.startClient(5, {"Laser-2,format=pdf", "Ink"});
  second->signal(SIGTERM);
  second->wait();
  scene.server().waitForLine("session 5: the print client has gone");
  const auto status = tool.status();
  EXPECT_EQ(status.version, L"4.0.1.0");
  EXPECT_EQ(status.process, scene.server().id());
  EXPECT_THAT(status.sessions,
              ElementsAre(L"5 away: Laser-2 (session 5), Ink (session 5)", L"7 connected: Plotter (session 7)"));
}

TEST(Administration, AClientWithTooLongADescriptionIsToldSoAndTheOthersAreStillTold) {
  Scene scene;
  const auto other = scene.startClient(7, {"Plotter"});
  ChildProcess client(scene.clientCommand(5, {"Laser-2,driver=" + std::string(30000, 'x')}));
  client.waitForLine(
      "the server refuses: the printer \"Laser-2\" has a description of 30000 characters, the limit is "
      "1024; shorten it");
  EXPECT_EQ(client.wait(), 1);
  AdministrationPeer tool(scene.port());
  EXPECT_THAT(tool.status().sessions, ElementsAre(L"7 connected: Plotter (session 7)"));
}

TEST(Administration, ARunningServerTellsTheLatestFailuresAndNothingElse) {
  Scene scene;
  AdministrationPeer tool(scene.port());
  MonitorPeer peer(scene.port());
  peer.record(77, L"spoolsv", corvane::kLevelFailure, L"Failed to connect.");
  peer.record(77, L"spoolsv", corvane::kLevelStackTrace, L"Stack Trace: MgPrintMon - MGStartDocPort()");
  EXPECT_FALSE(peer.attach(L"Nobody's"));
  const auto records = tool.records(10);
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_THAT(records[0], HasSubstr(L" spoolsv 77 #"));
  EXPECT_THAT(records[0], HasSubstr(L": failure: Failed to connect."));
  EXPECT_THAT(records[1], HasSubstr(L" job refused: printer \"Nobody's\", process 1234: no session has a printer"));
  EXPECT_THAT(tool.records(1), ElementsAre(records[1]));
}

TEST(Administration, AnExceptionThatRepeatsItsFailureIsOneRecord) {
  Scene scene;
  AdministrationPeer tool(scene.port());
  MonitorPeer peer(scene.port());
  peer.recordThrown(77, L"spoolsv", L"Failed to connect.");
  scene.server().waitForLine(": exception: Failed to connect.");
  EXPECT_THAT(tool.records(10), SizeIs(1));
}

TEST(Administration, AToolThatWaitsLearnsOfANoticeWhenItArrives) {
  Scene scene;
  AdministrationPeer tool(scene.port());
  EXPECT_EQ(tool.notices(-1, 5000).latest, 0);
  auto waiting = std::async(std::launch::async, [&] { return waitForNotice(tool, 0); });
  MonitorPeer peer(scene.port());
  peer.notify(77, L"spoolsv", deliveredJob());
  const auto notices = waiting.get();
  EXPECT_EQ(notices.latest, 1);
  ASSERT_THAT(notices.list, SizeIs(1));
  EXPECT_EQ(notices.list[0].number, 1);
  EXPECT_EQ(notices.list[0].kind, L"job");
  EXPECT_EQ(notices.list[0].line, deliveredJob().line);
  EXPECT_EQ(notices.list[0].values, deliveredJob().values);
  scene.server().waitForLine("spoolsv 77: job: \"Report\" was delivered");
  EXPECT_THAT(tool.records(10), IsEmpty());
}

TEST(Administration, TheNoticeOfAFailedJobIsAFailureToo) {
  Scene scene;
  AdministrationPeer tool(scene.port());
  MonitorPeer peer(scene.port());
  CS_Notice notice = deliveredJob();
  notice.line = L"\"Report\" was not delivered";
  notice.values[1].second = L"failed";
  peer.notify(77, L"spoolsv", notice);
  EXPECT_EQ(waitForNotice(tool, 0).list[0].line, notice.line);
  const auto records = tool.records(10);
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_THAT(records[0], HasSubstr(L" spoolsv 77: job: \"Report\" was not delivered"));
}

TEST(Administration, AJobThatIsCutIsAFailureAndOneThatIsDeliveredIsNone) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  AdministrationPeer tool(scene.port());
  for (const bool whole : {true, false}) {
    {
      MonitorPeer peer(scene.port());
      ASSERT_TRUE(peer.attach(L"Laser-2 (session 5)"));
      peer.startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 1});
      peer.writeJob("hello");
      if (whole) {
        EXPECT_EQ(peer.endJob(), 1);
      }
    }
    scene.server().waitForLine(whole ? "job ended: " : "job cut: ");
    EXPECT_THAT(tool.records(10), SizeIs(whole ? 0 : 1));
  }
}

TEST(Administration, AJobThatAProgramShowsIsNoFailure) {
  Scene scene({"--launch-command", "/bin/true"});
  const auto client = scene.startClient(5, {"Preview PDF"});
  AdministrationPeer tool(scene.port());
  for (const bool shown : {true, false}) {
    {
      MonitorPeer peer(scene.port());
      ASSERT_TRUE(peer.attach(L"Preview PDF (session 5)"));
      peer.startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 2});
      if (shown) {
        EXPECT_TRUE(peer.launch(L"notepad.exe", L"/p a.txt", L"PREVIEW PDF (session 5)"));
      }
    }
    const std::string line = scene.server().waitForLine(shown ? "job ended: " : "job cut: ");
    EXPECT_EQ(line.find("a program was started to show it instead") != std::string::npos, shown) << line;
    EXPECT_THAT(tool.records(10), SizeIs(shown ? 0 : 1));
  }
}

TEST(Administration, AJobThatItsClientHasTakenIsNotTheOneThatAProgramShows) {
  Scene scene({"--launch-command", "/bin/true"});
  const auto client = scene.startClient(5, {"Preview PDF"});
  MonitorPeer shown(scene.port());
  ASSERT_TRUE(shown.attach(L"Preview PDF (session 5)"));
  EXPECT_TRUE(shown.launch(L"notepad.exe", L"/p a.txt", L"Preview PDF (session 5)"));
  {
    MonitorPeer peer(scene.port());
    ASSERT_TRUE(peer.attach(L"Preview PDF (session 5)"));
    peer.startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 2});
    peer.writeJob("%PDF-1.4\n%%EOF\n");
    EXPECT_EQ(peer.endJob(), 1);
  }
  EXPECT_THAT(scene.server().waitForLine("job ended: "), HasSubstr("the print client has answered its end"));
  CS_Connection::destroy(shown.connection(), true);
  EXPECT_THAT(scene.server().waitForLine("job ended: "), HasSubstr("a program was started to show it instead"));
}

TEST(Administration, AServerThatIsStoppedDoesNotWaitForAToolThatWaits) {
  Scene scene;
  AdministrationPeer tool(scene.port());
  auto waiting = std::async(std::launch::async, [&] {
    try {
      for (;;)
        tool.notices(0, 5000);
    } catch (const CS_Exception&) {
      return true;
    }
  });
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
  EXPECT_TRUE(waiting.get());
}

}  // namespace
}  // namespace tests
