#include "tests/support/guarded_heap.h"
#include "tests/support/monitor/job_end_fixture.h"

#include <gmock/gmock.h>
#include <new>

// When a job and its stream come to their end, and what other calls on their port leave alone.
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class JobLifeTest : public JobEndTest {
 protected:
  // How many jobs, or streams, of this test there are.
  std::size_t countOfSize(std::size_t size) const {
    std::size_t count = 0;
    for (const guarded_heap::Block& block : m_mark.left())
      count += block.size == size ? 1 : 0;
    return count;
  }
  std::size_t jobs() const { return countOfSize(sizeof(ClientPrintJob)); }
  // With those components of a job that are no larger than its stream.
  std::size_t streams() const { return countOfSize(sizeof(PrintServer)); }

  const guarded_heap::Mark m_mark;
};

TEST_F(JobLifeTest, AJobHoldsItsPortUntilItsClientHasAnswered) {
  bool hadJob = false;
  std::uint32_t flags = 0;
  m_peer.whenAsked("PrintClient", 3, [&] {
    hadJob = m_port->job != nullptr;
    flags = m_port->flags;
  });
  start();
  end();
  EXPECT_TRUE(hadJob);
  EXPECT_EQ(flags, kPortIsOpen | kPortHasDocument);
}

TEST_F(JobLifeTest, AnEndedJobIsDestroyedBeforeTheQueueIsTouched) {
  start();
  EXPECT_EQ(jobs(), 1u);
  std::size_t left = 99;
  std::uint32_t flags = 99;
  wcscpy(m_port->secondName, L"something");
  m_queue.whenAsked("open Laser 0xf000c", [&] {
    left = jobs();
    flags = m_port->flags;
    EXPECT_EQ(m_port->job, nullptr);
    EXPECT_STREQ(m_port->secondName, L"");
  });
  EXPECT_EQ(end(), TRUE);
  EXPECT_EQ(left, 0u);
  EXPECT_EQ(flags, kPortIsOpen);
}

TEST_F(JobLifeTest, AJobThatDoesNotStartIsDestroyedBehindItsQueueAndBeforeTheLastLine) {
  // What of the job is there when a record is written.
  class Watching : public RecordingMonitor {
   public:
    std::function<void(const std::string&)> see;

   protected:
    void write(const CS_Record& record) noexcept override { see(corvane::toUtf8(record.text)); }
  };
  std::vector<std::string> seen;
  const CS_RCPtr<Watching> monitor(new Watching);
  monitor->see = [&](const std::string& line) {
    seen.push_back(line + ", " + std::to_string(jobs()) + " job, port " +
                   (m_port->flags == kPortIsOpen ? "free" : "busy"));
  };
  refuseAttach();
  CS_ProgramMonitor::setDefaultMonitor(monitor);
  EXPECT_EQ(start(), FALSE);
  CS_ProgramMonitor::setDefaultMonitor(&m_world.records().monitor());
  ASSERT_GE(seen.size(), 2u);
  EXPECT_THAT(std::vector(seen.end() - 2, seen.end()),
              ElementsAre("Deleted print job letter.txt, 1 job, port busy",
                          "Stack Trace: MgPrintMon - MGStartDocPort(), 0 job, port free"));
}

TEST_F(JobLifeTest, AJobThatDoesNotStartLeavesNoConnection) {
  refuseAttach();
  EXPECT_EQ(start(), FALSE);
  EXPECT_EQ(countOfSize(sizeof(CS_Connection)), 0u);
}

TEST_F(JobLifeTest, AJobThatIsGivenUpIsFreedWithItsStream) {
  start();
  const std::size_t components = streams();
  EXPECT_GE(components, 1u);
  start(L"Ink", 18);
  EXPECT_EQ(jobs(), 1u);
  EXPECT_TRUE(m_peer.waitForOpen(1));
  EXPECT_EQ(streams(), components) << "the connection has let go of what stood on it";
}

TEST_F(JobLifeTest, OpeningAndClosingThePortLeaveItsJobAlone) {
  start();
  const ClientPrintJob* const job = m_port->job;
  const CS_RCPtr<CS_Component> stream(m_port->printServer.get());
  HANDLE handle = nullptr;
  EXPECT_EQ(MGOpenPort(nullptr, text(L"CPP5"), &handle), TRUE);
  EXPECT_EQ(handle, m_port);
  EXPECT_EQ(m_port->jobId, 17u);
  EXPECT_STREQ(m_port->printerName, L"Laser");
  EXPECT_EQ(m_port->flags, kPortIsOpen | kPortHasDocument);
  EXPECT_EQ(MGClosePort(m_port), TRUE);
  EXPECT_EQ(m_port->job, job);
  EXPECT_EQ(m_port->printServer.get(), stream.get());
  EXPECT_EQ(m_port->jobId, 17u);
  EXPECT_EQ(write("abc"), TRUE);
  EXPECT_EQ(end(), TRUE);
}

// Between its end and its notice only the spooler is called.
TEST_F(JobLifeTest, AJobIsReportedEvenIfTheSpoolerThrows) {
  m_queue.whenAsked("set job 17 level 0 command 6", [] { throw std::bad_alloc(); });
  start();
  write("abc");
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 3 bytes."));
  EXPECT_THAT(records(), ElementsAre("10: number 3012", closing("MGEndDocPort")));
}

TEST_F(JobLifeTest, AFailureThatNobodyExplainedIsToldWithItsRecord) {
  start();
  m_port->job->dataLost = true;
  write("abc");
  ASSERT_EQ(told().size(), 1u);
  EXPECT_THAT(told().front(), HasSubstr(" failed: Failed to send print job data. "));
}

class RefusingQueueTest : public JobEndTest {
 protected:
  static constexpr char kStays[] =
      " The job stays in the spooler's queue, which refused to delete it (error 5): the person who printed it, or an "
      "administrator, can delete it there.";
};

TEST_F(RefusingQueueTest, AFailedStartThatIsNotDeletedSaysWhoCan) {
  refuseAttach();
  m_queue.refuseOpen();
  m_queue.refuseSetJob();
  start();
  expectFailure("Failed to attach print job to session for Laser. Start the session's print client, then print again." +
                std::string(kStays));
  EXPECT_THAT(records(), testing::Contains("0x4000000c: Failed to delete print job"));
}

TEST_F(RefusingQueueTest, AFailedWriteThatIsNotDeletedSaysWhoCan) {
  start();
  breakConnection();
  m_queue.refuseSetJob();
  write("abc");
  ASSERT_EQ(told().size(), 1u);
  EXPECT_THAT(told().front(), testing::EndsWith(kStays));
  EXPECT_THAT(m_events[1], testing::EndsWith(kStays));
}

TEST_F(RefusingQueueTest, AQueueThatDoesNotSayWhyIsReportedWithAGeneralError) {
  refuseAttach();
  m_queue.refuseSetJob(ERROR_SUCCESS);
  start();
  ASSERT_EQ(told().size(), 1u);
  EXPECT_THAT(told().front(), HasSubstr("which refused to delete it (error 31)"));
}

TEST_F(RefusingQueueTest, AJobThatIsDeletedAlthoughItsPrinterDidNotOpenDoesNotStay) {
  refuseAttach();
  m_queue.refuseOpen();
  start();
  ASSERT_EQ(told().size(), 1u);
  EXPECT_THAT(told().front(), Not(HasSubstr("stays")));
}

TEST_F(RefusingQueueTest, ADeliveredJobThatIsNotMarkedSaysThatItNeedNotBePrintedAgain) {
  start();
  m_queue.refuseOpen();
  m_queue.refuseSetJob();
  EXPECT_EQ(end(), TRUE);
  EXPECT_THAT(
      told(),
      ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 0 bytes. The spooler's queue "
                  "refused to mark it as sent (error 5), so it may stay there: the person who printed it, or an "
                  "administrator, can delete it; it need not be printed again."));
}

}  // namespace
