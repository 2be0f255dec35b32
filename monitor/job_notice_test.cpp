#include "monitor/kept_notices.h"
#include "tests/support/failing_new.h"
#include "tests/support/monitor/job_end_fixture.h"
#include "tests/support/monitor/message_box_seam.h"

#include <algorithm>
#include <gmock/gmock.h>

// Where a job's end is told, in which order, and that it is told when memory or the event log fails.
namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr int kTooMany = 2000;
constexpr char kFailedAttach[] =
    "Job 17 \"letter.txt\" on \"Laser\" (session 5) failed: Failed to attach print job to session for Laser. Start the "
    "session's print client, then print again.";

class JobNoticeTest : public JobEndTest {
 protected:
  ~JobNoticeTest() override { mg::KeptNotices::instance().clear(); }
  // As in a module whose own component was never needed: records stay in its log.
  static void useTheLocalMonitor() { CS_ProgramMonitor::setDefaultMonitor(nullptr); }
  // Deletes a second port in the middle of its job.
  template <class Delete>
  void deletePortWithJob(Delete remove) {
    m_list.AddPort(L"CPP6", 0);
    HANDLE handle = nullptr;
    MGOpenPort(nullptr, text(L"CPP6"), &handle);
    auto* port = static_cast<tagPort*>(handle);
    MGStartDocPort(port, text(L"Laser"), 17, 1, reinterpret_cast<LPBYTE>(&m_document));
    remove();
    EXPECT_TRUE(m_peer.waitForLine("end"));
    MGClosePort(handle);
    EXPECT_THAT(told(),
                ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 6) failed: The port was deleted before "
                            "the job had ended. Add the port again, then print again."));
  }
};

TEST_F(JobNoticeTest, StandsInTheLogBehindTheRecordsAndBeforeTheTrail) {
  useTheLocalMonitor();
  refuseAttach();
  start();
  const auto lines = m_log.lines();
  const auto told = std::find(lines.begin(), lines.end(), std::string("job: ") + kFailedAttach);
  ASSERT_NE(told, lines.end());
  EXPECT_THAT(*(told - 1), testing::EndsWith("trace: Stack Trace: MgPrintMon - MGStartDocPort()"));
  std::vector<std::string> trail;
  for (auto line = told + 1; line != lines.end(); ++line) {
    EXPECT_THAT(*line, StartsWith("job 17: "));
    trail.push_back(line->substr(21));
  }
  EXPECT_THAT(trail,
              ElementsAre("started: \"letter.txt\", 1 copies, data type RAW", "connected to the application server",
                          "the client printer is \"Client Laser\", format 1", "0 bytes were taken from the spooler"));
}

TEST_F(JobNoticeTest, ReachesTheServerOnTheJobsOwnConnectionWithoutARoundTripWhenThereIsNoOther) {
  useTheLocalMonitor();
  start();
  write("abc");
  EXPECT_EQ(end(), TRUE);
  EXPECT_TRUE(m_peer.waitForLine("end"));
  const ScriptedPeer::Lines lines = m_peer.lines();
  const auto created = std::find(lines.begin(), lines.end(), "create ProgramMonitor_s");
  ASSERT_NE(created, lines.end());
  ASSERT_EQ(lines.end() - created, 3);
  EXPECT_THAT(*(created - 1), StartsWith("request 3 EndJob"));
  EXPECT_THAT(created[1], testing::HasSubstr("text \"job\", text \"Job 17 \"letter.txt\" on \"Laser\" (session 5) was "
                                             "delivered: 3 bytes.\", int 8, "));
  EXPECT_THAT(created[1], testing::EndsWith("text \"user\", text \"" + userName() + "\""));
  EXPECT_EQ(created[2], "end");
  EXPECT_THAT(m_log.lines(),
              ElementsAre("job: Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 3 bytes."));
}

TEST_F(JobNoticeTest, OfAFailureIsIntroducedSoThatNothingOvertakesIt) {
  useTheLocalMonitor();
  refuseAttach();
  start();
  EXPECT_TRUE(m_peer.waitForLine("end"));
  const ScriptedPeer::Lines lines = m_peer.lines();
  const auto created = std::find(lines.begin(), lines.end(), "create ProgramMonitor_s");
  ASSERT_NE(created, lines.end());
  ASSERT_EQ(lines.end() - created, 4);
  EXPECT_THAT(created[1], testing::HasSubstr("int " + MonitorWorld::processId() + ", text \"monitor_tests\""));
  EXPECT_THAT(created[2], testing::HasSubstr(kFailedAttach));
  EXPECT_EQ(created[3], "end");
}

TEST_F(JobNoticeTest, IsInTheLogWhenTheServerHasGone) {
  useTheLocalMonitor();
  start();
  breakConnection();
  write("abc");
  const auto lines = m_log.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "job: Job 17 \"letter.txt\" on \"Laser\" (session 5) failed: Failed to send print job data: The "
                       "connection has ended. See that aps and the session's print client are running, then print "
                       "again."),
            1);
}

TEST_F(JobNoticeTest, ThatNoServerHeardIsToldToTheNextOneOnce) {
  useTheLocalMonitor();
  start();
  breakConnection();
  write("abc");
  end();
  for (const std::size_t late : {1u, 0u}) {
    m_peer.clear();
    start();
    write("abc");
    EXPECT_EQ(end(), TRUE);
    EXPECT_TRUE(m_peer.waitForOpen(0));
    std::vector<std::string> notices;
    for (const std::string& line : m_peer.lines()) {
      if (line.find("text \"job\", text \"Job 17 ") != std::string::npos) notices.push_back(line);
    }
    ASSERT_EQ(notices.size(), late + 1);
    if (late == 1) {
      EXPECT_THAT(notices[0], testing::HasSubstr("failed: Failed to send print job data: The connection has ended. See "
                                                 "that aps and the session's print client are running, then print "
                                                 "again. (Told late: it ended at 2"));
      EXPECT_THAT(notices[0], testing::HasSubstr("text \"result\", text \"failed\""));
    }
    EXPECT_THAT(notices[late], testing::HasSubstr("was delivered: 3 bytes.\""));
  }
}

// The server that took the job's connection with it has left the process's own connection open, and nobody has noticed.
TEST_F(JobNoticeTest, IsKeptWhenTheServerBehindTheProcessesMonitorDoesNotAnswerAnyMore) {
  PortMonitorServer::getInstance();
  start();
  m_peer.hangUpAt("ProgramMonitor_s", 1);
  breakConnection();
  write("abc");
  mg::KeptNotices::instance().tellAll(m_world.records().monitor());
  EXPECT_THAT(told(), ElementsAre(testing::AllOf(StartsWith("Job 17 "), testing::HasSubstr(" (Told late: "))));
}

TEST_F(JobNoticeTest, TellsOfAJobWhosePortIsDeleted) {
  deletePortWithJob([this] {
    MGXcvDataPort(nullptr, L"DeletePort", reinterpret_cast<PBYTE>(text(L"CPP6")), 10, nullptr, 0, nullptr);
  });
}

TEST_F(JobNoticeTest, TellsOfAJobWhosePortIsDeletedByHand) {
  watchMessageBoxes();
  deletePortWithJob([] { MGDeletePort(nullptr, nullptr, nullptr, text(L"CPP6")); });
}

TEST_F(JobNoticeTest, ADeletedPortWithoutAJobIsNothingToTell) {
  m_list.AddPort(L"CPP6", 0);
  for (int time = 0; time < 2; ++time)
    MGXcvDataPort(nullptr, L"DeletePort", reinterpret_cast<PBYTE>(text(L"CPP6")), 10, nullptr, 0, nullptr);
  EXPECT_TRUE(told().empty());
}

TEST_F(JobNoticeTest, AnEventLogThatRefusesChangesNothing) {
  refuseAttach();
  for (const char* call : {"register", "report", "deregister"}) {
    failEventLog(call);
    EXPECT_EQ(start(), FALSE);
    EXPECT_THAT(told(), ElementsAre(kFailedAttach)) << call;
    m_world.records().clear();
  }
  EXPECT_THAT(m_events, ElementsAre("register MgPrintMon", "deregister", "register MgPrintMon",
                                    std::string("error 0xc0000001 category 0: ") + kFailedAttach));
}

TEST_F(JobNoticeTest, WhatADocumentsNameHidesOrTurnsRoundIsSeenInTheLineAndInTheEventLog) {
  m_document.pDocName = text(L"a\u202Efdp.exe\u2066\u200B\x85\x1b[2J\n\U0001F5A8\u05d3");
  refuseAttach();
  start();
  const std::string line =
      "Job 17 \"a?fdp.exe????[2J \xF0\x9F\x96\xA8\xD7\x93\" on \"Laser\" (session 5) failed: Failed to attach print "
      "job to "
      "session for Laser. Start the session's print client, then print again.";
  EXPECT_THAT(told(), ElementsAre(line));
  EXPECT_THAT(m_events, ElementsAre("register MgPrintMon", "error 0xc0000001 category 0: " + line, "deregister"));
}

TEST_F(JobNoticeTest, IsToldOnceWhateverAllocationFailsAtTheStart) {
  bool sawConnect = false;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooMany);
    m_queue.clear();
    m_events.clear();
    BOOL started = FALSE;
    bool failed = false;
    {
      const FailingNew failing(nth);
      started = start();
      failed = failing.hasFailed();
    }
    const auto lines = told();
    EXPECT_EQ(lines.size(), started ? 0u : 1u) << nth;
    EXPECT_EQ(m_events.size(), started ? 0u : 3u) << nth;
    for (const std::string& line : lines) {
      EXPECT_THAT(line, StartsWith("Job 17 \"letter.txt\" on \"Laser\" (session 5) failed: "));
      sawConnect |= line.find("failed: Failed to connect to APS. Start aps on this machine, then print again.") !=
                    std::string::npos;
    }
    if (started) end();
    m_world.records().clear();
    if (!failed) break;
  }
  EXPECT_TRUE(sawConnect);
}

TEST_F(JobNoticeTest, IsToldOnceWhateverAllocationFailsAtTheEnd) {
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooMany);
    start();
    write("abc");
    BOOL ended = FALSE;
    bool failed = false;
    {
      const FailingNew failing(nth);
      ended = end();
      failed = failing.hasFailed();
    }
    const auto lines = told();
    ASSERT_EQ(lines.size(), 1u) << nth;
    EXPECT_NE(lines[0].find(ended ? " was delivered: 3 bytes." : " failed: "), std::string::npos) << nth;
    m_world.records().clear();
    if (!failed) break;
  }
}

// With two allocations in a row there is no memory even for the shorter notice.
TEST_F(JobNoticeTest, IsInTheLogWhateverAllocationsFailOnTheWayToTheServer) {
  useTheLocalMonitor();
  for (const int inARow : {1, 2}) {
    bool wasHeard = true;
    for (int nth = 1;; ++nth) {
      ASSERT_LT(nth, kTooMany);
      start();
      write("abc");
      m_peer.clear();
      m_log.forgetLast();
      BOOL ended = FALSE;
      bool failed = false;
      {
        const FailingNew failing(nth, inARow);
        ended = end();
        failed = failing.hasFailed();
      }
      ASSERT_TRUE(m_peer.waitForOpen(0)) << nth;
      if (ended) {
        EXPECT_EQ(m_log.last(), "job: Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 3 bytes.") << nth;
        const auto lines = m_peer.lines();
        wasHeard &= std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
          return line.find(" was delivered: 3 bytes.") != std::string::npos;
        });
      }
      if (!failed) break;
    }
    EXPECT_FALSE(wasHeard) << inARow;
  }
}

}  // namespace
