#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "tests/support/barren_class.h"
#include "tests/support/failing_new.h"
#include "tests/support/monitor/job_path.h"
#include "tests/support/monitor/send_seam.h"
#include "tests/support/trail_lines.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StartDocPortTest : public JobPath {
 protected:
  // The queue's calls after the number of copies was asked for.
  std::vector<std::string> cleanUpCalls() const {
    const auto calls = m_queue.calls();
    return {calls.begin() + 3, calls.end()};
  }
  std::vector<std::string> deletion() const {
    return {"open Laser 0xf000c", "set job 17 level 0 command 5", "close handle"};
  }
  // A start that fails at a step whose text is recorded and thrown.
  void expectFailedStart(const std::vector<std::string>& recorded) {
    EXPECT_EQ(start(), FALSE);
    auto expected = recorded;
    expected.push_back("0x4000000c: Deleted print job letter.txt");
    expected.push_back(closing("MGStartDocPort"));
    EXPECT_THAT(records(), testing::ElementsAreArray(expected));
    EXPECT_EQ(cleanUpCalls(), deletion());
    expectIdlePort();
    EXPECT_FALSE(m_port->printServer);
    EXPECT_TRUE(m_peer.waitForLine("end"));
  }
};

TEST_F(StartDocPortTest, AnnouncesTheJobToThePrintClientOfThePrintersSession) {
  m_queue.setCopies(3);
  EXPECT_EQ(start(), TRUE);
  EXPECT_EQ(end(), TRUE);
  const ScriptedPeer::Lines lines = m_peer.waitForLines(9);
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines[0], "connect");
  EXPECT_EQ(lines[1], "create BridgeRouter");
  EXPECT_EQ(lines[2], "create PortMonitorClient");
  EXPECT_EQ(lines[3], "request 5 GetPrinterInfo: text \"Laser\"");
  EXPECT_THAT(lines[4], testing::StartsWith("request 4 AttachPrintJobToSession: text \"Laser\", int " +
                                            MonitorWorld::processId() + ", int "));
  EXPECT_EQ(lines[5], "create PrintClient");
  EXPECT_EQ(lines[6],
            "one-way 1 StartJob: boolean true, text \"Laser - Job #17\", boolean true, text \"Client Laser\", boolean "
            "true, text \"letter.txt\", boolean true, text \"RAW\", int 1, int 1, int 1, int 1, int 3");
  EXPECT_EQ(lines[7], "request 3 EndJob: boolean true, text \"Laser - Job #17\"");
  EXPECT_EQ(lines[8], "end");
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(StartDocPortTest, HangsTheJobOnThePort) {
  EXPECT_EQ(start(), TRUE);
  EXPECT_EQ(m_port->flags, kPortIsOpen | kPortHasDocument);
  EXPECT_EQ(m_port->jobId, 17u);
  EXPECT_STREQ(m_port->printerName, L"Laser");
  ASSERT_NE(m_port->job, nullptr);
  EXPECT_STREQ(m_port->job->jobName.wide(), L"Laser - Job #17");
  EXPECT_STREQ(m_port->job->documentName.wide(), L"letter.txt");
  EXPECT_STREQ(m_port->job->dataType.wide(), L"RAW");
  EXPECT_EQ(m_port->job->copies, 1);
  const CS_RCPtr<CS_Component> stream(m_port->printServer.get());
  EXPECT_NE(dynamic_cast<PrintServer*>(stream.get()), nullptr);
  EXPECT_THAT(m_queue.calls(), ElementsAre("open Laser", "job 17 level 2", "close printer"));
}

TEST_F(StartDocPortTest, TheLevelIsNotLookedAt) {
  EXPECT_EQ(MGStartDocPort(m_port, text(L"Laser"), 17, 2, reinterpret_cast<LPBYTE>(&m_document)), TRUE);
  EXPECT_STREQ(m_port->job->documentName.wide(), L"letter.txt");
}

TEST_F(StartDocPortTest, BadArgumentsTouchNeitherPortNorQueue) {
  const auto document = reinterpret_cast<LPBYTE>(&m_document);
  const std::wstring tooLong(260, L'x');
  EXPECT_EQ(MGStartDocPort(nullptr, text(L"Laser"), 17, 1, document), FALSE);
  EXPECT_EQ(MGStartDocPort(INVALID_HANDLE_VALUE, text(L"Laser"), 17, 1, document), FALSE);
  EXPECT_EQ(MGStartDocPort(m_port, nullptr, 17, 1, document), FALSE);
  EXPECT_EQ(MGStartDocPort(m_port, text(L"Laser"), 17, 1, nullptr), FALSE);
  EXPECT_EQ(MGStartDocPort(m_port, text(tooLong.c_str()), 17, 1, document), FALSE);
  const std::string bad = "10: number 3015";
  const std::string line = closing("MGStartDocPort");
  EXPECT_THAT(records(), ElementsAre(bad, line, bad, line, bad, line, bad, line, bad, line));
  EXPECT_THAT(m_queue.calls(), IsEmpty());
  EXPECT_THAT(m_peer.lines(), IsEmpty());
  expectIdlePort();
}

TEST_F(StartDocPortTest, TheLongestNameThatFitsIsTaken) {
  const std::wstring longest(259, L'x');
  EXPECT_EQ(start(longest.c_str()), TRUE);
  EXPECT_STREQ(m_port->printerName, longest.c_str());
}

TEST_F(StartDocPortTest, APrinterThatNobodyHasFailsTheJob) {
  m_peer.answer("PortMonitorClient", 5, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  const std::string text = "Failed to get the printer's information: Laser, print job #17 has failed to print.";
  expectFailedStart({"10: Failed to get printer info",
                     "0x40000008: Stack Trace: MgPrintMon - PortMonitorServer::GetPrinterInfo()", "0x4000000a: " + text,
                     "10: " + text});
}

TEST_F(StartDocPortTest, ARefusedAttachFailsTheJobWithoutATextOfItsOwn) {
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  expectFailedStart({"0x4000000a: Failed to attach print job to session for Laser",
                     "0x40000008: Stack Trace: MgPrintMon - PortMonitorServer::AttachPrintJobToSession()", "10: "});
}

TEST_F(StartDocPortTest, AClientOfAnotherVersionFailsTheJob) {
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(1);
    reply.writeText(L"Quillfern::NTR::PrintClient");
    for (const int number : {5, 0, 0, 0})
      reply.writeInt(number);
  });
  expectFailedStart(
      {"0x4000000a: Failed to get the bridge's class factory", "10: Failed to get the bridge's class factory"});
}

TEST_F(StartDocPortTest, ABridgeThatCannotBeMadeFailsTheJob) {
  const BarrenClass barren(CS_Bridge::m_className, new corvane::ComponentClass<CS_Bridge>(CS_Version(1, 0, 0, 0)));
  expectFailedStart({"0x4000000a: Failed to create bridge", "10: Failed to create bridge"});
}

TEST_F(StartDocPortTest, APortMonitorThatCannotBeMadeFailsTheJob) {
  const BarrenClass barren(L"Quillfern::NTR::PortMonitorServer", new PortMonitorServerClass(CS_Version(4, 0, 1, 0)));
  const std::string text = "10: Failed to create port monitor server instance.";
  expectFailedStart({text, text});
}

TEST_F(StartDocPortTest, AStreamThatCannotBeMadeFailsTheJob) {
  const BarrenClass barren(L"Quillfern::NTR::PrintServer", new PrintServerClass(CS_Version(4, 0, 1, 0)));
  expectFailedStart({"0x4000000a: Failed to create the print server", "10: Failed to create the print server"});
}

// An application server that cannot be reached is tried without end; only a connection that cannot be made fails.
TEST_F(StartDocPortTest, AMissingConnectionFailsTheJob) {
  bool sawFailure = false;
  for (int nth = 1; nth < 100 && !sawFailure; ++nth) {
    m_queue.clear();
    m_world.records().clear();
    BOOL started = TRUE;
    {
      const FailingNew failing(nth);
      started = start();
    }
    if (started) end();
    const auto lines = records();
    sawFailure = std::count(lines.begin(), lines.end(), "0x4000000a: Failed to connect to APS.") == 1;
    if (!sawFailure) continue;
    EXPECT_EQ(started, FALSE);
    EXPECT_THAT(lines, ElementsAre("0x40000002: number 3012", "0x40000008: Failed to connect to localhost.",
                                   "0x4000000a: Failed to connect to APS.", "10: Failed to connect to APS.",
                                   "0x4000000c: Deleted print job letter.txt", closing("MGStartDocPort")));
    EXPECT_EQ(cleanUpCalls(), deletion());
    expectIdlePort();
  }
  EXPECT_TRUE(sawFailure);
}

TEST_F(StartDocPortTest, TheTrailOfAJobSaysHowFarItsStartHasCome) {
  start();
  ASSERT_NE(m_port->job, nullptr);
  EXPECT_THAT(trailLines(m_port->job->report),
              ElementsAre("started: \"letter.txt\", 1 copies, data type RAW", "connected to the application server",
                          "the client printer is \"Client Laser\", format 1",
                          "attached to the session, delivery mode 1", "announced to the print client"));
}

// What could not be announced fails with its first write, not here.
TEST_F(StartDocPortTest, AJobWhoseAnnouncementIsLostIsStartedAllTheSame) {
  // The next send but one: the first is the server's answer.
  m_peer.whenAsked("PortMonitorClient", 4, [] { send_seam::reset(2); });
  EXPECT_EQ(start(), TRUE);
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(m_port->flags, kPortIsOpen | kPortHasDocument);
  EXPECT_EQ(write("abc"), FALSE);
  EXPECT_EQ(records().front(), "0x4000000a: Failed to send print job data");
}

TEST_F(StartDocPortTest, ADocumentWithoutADataTypeIsSentWithoutOne) {
  m_document.pDatatype = nullptr;
  EXPECT_EQ(start(), TRUE);
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(m_peer.waitForLines(8)[6],
              testing::HasSubstr("boolean true, text \"letter.txt\", boolean false, int 1, int 1"));
}

TEST_F(StartDocPortTest, TextsOutsideTheCodePageArriveAsTheyAre) {
  m_document.pDocName = text(L"\u4E2D\u6587 \u2603");
  EXPECT_EQ(start(L"Dr\u00FCcker \u4E2D"), TRUE);
  EXPECT_EQ(end(), TRUE);
  const ScriptedPeer::Lines lines = m_peer.waitForLines(8);
  EXPECT_EQ(lines[3],
            "request 5 GetPrinterInfo: text \"Dr\xC3\xBC"
            "cker \xE4\xB8\xAD\"");
  EXPECT_THAT(lines[6], testing::HasSubstr("text \"\xE4\xB8\xAD\xE6\x96\x87 \xE2\x98\x83\""));
}

// A number that no client printer has: the reason is recorded, and the job goes on as it is.
TEST_F(StartDocPortTest, AnUnknownWayToTravelIsRecordedAndTheJobStarts) {
  m_printerValue = 9;
  EXPECT_EQ(start(), TRUE);
  EXPECT_THAT(records(),
              ElementsAre("10: number 3014", "0x40000008: Stack Trace: MgPrintMon - ConfigurePrintJobSettings()"));
  EXPECT_THAT(m_port->job->settings, ElementsAre(0, 0, 0, 0));
}

TEST_F(StartDocPortTest, AQueueThatCannotBeOpenedIsNotedAndTheJobDeletedAllTheSame) {
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  m_queue.refuseOpen();
  EXPECT_EQ(start(), FALSE);
  EXPECT_THAT(cleanUpCalls(), ElementsAre("open Laser 0xf000c", "set job 17 level 0 command 5 of no printer"));
  EXPECT_THAT(records(), ElementsAre("0x4000000a: Failed to attach print job to session for Laser",
                                     "0x40000008: Stack Trace: MgPrintMon - "
                                     "PortMonitorServer::AttachPrintJobToSession()",
                                     "10: ", "0x4000000c: Failed to open the printer",
                                     "0x4000000c: Deleted print job letter.txt", closing("MGStartDocPort")));
  expectIdlePort();
}

TEST_F(StartDocPortTest, AJobThatCannotBeDeletedIsNoted) {
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  m_queue.refuseSetJob();
  EXPECT_EQ(start(), FALSE);
  EXPECT_EQ(records()[3], "0x4000000c: Failed to delete print job");
  EXPECT_EQ(records()[4], closing("MGStartDocPort"));
  EXPECT_EQ(cleanUpCalls(), deletion());
}

TEST_F(StartDocPortTest, ADocumentWithoutANameIsNotedAsNull) {
  m_document.pDocName = nullptr;
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  EXPECT_EQ(start(), FALSE);
  EXPECT_EQ(records()[3], "0x4000000c: Deleted print job null");
}

TEST_F(StartDocPortTest, AFailedStartLeavesTheStreamOfTheJobBefore) {
  EXPECT_EQ(start(), TRUE);
  EXPECT_EQ(end(), TRUE);
  const CS_RCPtr<CS_Component> stale(m_port->printServer.get());
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  EXPECT_EQ(start(), FALSE);
  EXPECT_EQ(m_port->printServer.get(), stale.get());
  expectIdlePort();
  EXPECT_EQ(end(), FALSE);
  EXPECT_EQ(records().back(), closing("MGEndDocPort"));
  EXPECT_EQ(*(records().end() - 2), "10: number 3014");
}

TEST_F(StartDocPortTest, AJobThatNeverHadAStreamIsReplaced) {
  m_port->job = new ClientPrintJob;
  EXPECT_EQ(start(), TRUE);
  EXPECT_STREQ(m_port->job->jobName.wide(), L"Laser - Job #17");
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(StartDocPortTest, AJobThatWasNeverEndedLosesItsConnectionToTheNextOne) {
  EXPECT_EQ(start(), TRUE);
  EXPECT_EQ(start(L"Laser", 18), TRUE);
  EXPECT_STREQ(m_port->job->jobName.wide(), L"Laser - Job #18");
  const ScriptedPeer::Lines lines = m_peer.waitForLines(15);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "end"), 1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "2| connect"), 1);
}

}  // namespace
