#include "tests/support/failing_new.h"
#include "tests/support/monitor/job_path.h"

#include <gmock/gmock.h>
#include <set>

// The same job again and again, with another call or allocation failing each time: nothing crashes, no lock stays held,
// a job that did not start leaves an idle port, and a job that lost something is not reported as printed.
namespace {

constexpr int kTooManyFailures = 2000;

class JobSweepTest : public JobPath {
 protected:
  void collectRecords() {
    for (const std::string& line : records())
      m_seen.insert(line);
    m_world.records().clear();
  }
  void expectFreePort() {
    EXPECT_EQ(m_port->lock->unlock(), 0);
    tagPort* found = m_list.FindPort(L"CPP5");
    ASSERT_EQ(found, m_port);
    EXPECT_EQ(found->lock->unlock(), 1);
  }

  std::set<std::string> m_seen;
};

TEST_F(JobSweepTest, AStartWithoutMemoryEndsInAStartedJobOrAnIdlePort) {
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooManyFailures);
    m_queue.clear();
    BOOL started = FALSE;
    bool failed = false;
    {
      const FailingNew failing(nth);
      started = start();
      failed = failing.hasFailed();
    }
    if (started) {
      end();
    } else {
      expectIdlePort();
      EXPECT_FALSE(records().empty()) << nth;
    }
    expectFreePort();
    collectRecords();
    if (!failed) break;
  }
  EXPECT_EQ(m_seen.count("0x4000000a: Failed to connect to APS."), 1u);
  EXPECT_EQ(m_seen.count("0x40000008: Failed to connect to localhost."), 1u);
  EXPECT_EQ(m_seen.count("10: number 3012"), 1u);
}

TEST_F(JobSweepTest, AnEndWithoutMemoryNeverReportsAJobThatWasNotEnded) {
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooManyFailures);
    ASSERT_EQ(start(), TRUE);
    ASSERT_EQ(write("abc"), TRUE);
    BOOL ended = FALSE;
    bool failed = false;
    {
      const FailingNew failing(nth);
      ended = end();
      failed = failing.hasFailed();
    }
    if (!ended) {
      EXPECT_FALSE(records().empty()) << nth;
    }
    EXPECT_EQ(m_port->job, nullptr) << nth;
    expectFreePort();
    collectRecords();
    if (!failed) break;
  }
}

TEST_F(JobSweepTest, AWriteInACollectedJobWithoutMemoryIsTakenOrRefused) {
  m_printerValue = 3;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooManyFailures);
    ASSERT_EQ(start(), TRUE);
    bool failed = false;
    {
      const FailingNew failing(nth);
      const BOOL taken = write("abc");
      failed = failing.hasFailed();
      EXPECT_EQ(m_written, taken ? 3u : 0u);
    }
    end();
    collectRecords();
    if (!failed) break;
  }
}

TEST_F(JobSweepTest, AFailingCallOfTheSpoolerAtTheStartNeverKeepsAJobFromPrinting) {
  constexpr int kQueueCalls = 4;  // what follows is the way to the server, which would be tried without end
  for (int nth = 1; nth <= kQueueCalls; ++nth) {
    m_seams.failNth(nth);
    EXPECT_EQ(start(), TRUE) << nth;
    EXPECT_TRUE(m_seams.hasFailed());
    m_seams.failNth(0);
    EXPECT_EQ(write("abc"), TRUE);
    EXPECT_EQ(end(), TRUE);
    expectFreePort();
  }
}

TEST_F(JobSweepTest, AFailingCallOfTheSpoolerAtTheEndNeverKeepsAJobFromPrinting) {
  // The first call sends the request that ends the job; without that it is not printed.
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooManyFailures);
    ASSERT_EQ(start(), TRUE);
    m_seams.failNth(nth);
    EXPECT_EQ(end(), nth == 1 ? FALSE : TRUE) << nth;
    const bool failed = m_seams.hasFailed();
    m_seams.failNth(0);
    EXPECT_EQ(m_port->job, nullptr);
    expectFreePort();
    if (!failed) break;
  }
}

}  // namespace
