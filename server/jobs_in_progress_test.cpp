#include "server/jobs_in_progress.h"

#include "corvane/components/connection.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

class JobsInProgressTest : public ::testing::Test {
 protected:
  const CS_RCPtr<CS_Connection> m_first = CS_Connection::create();
  const CS_RCPtr<CS_Connection> m_second = CS_Connection::create();
};

TEST_F(JobsInProgressTest, ASessionHasNoMoreJobsThanItsLimitAndOthersAreUndisturbed) {
  JobsInProgress jobs(2);
  auto one = jobs.begin(5, m_first.get());
  const auto two = jobs.begin(5, m_second.get());
  EXPECT_TRUE(one && two);
  EXPECT_FALSE(jobs.begin(5, m_first.get()));
  EXPECT_TRUE(jobs.begin(6, m_first.get()));
  one.reset();
  EXPECT_TRUE(jobs.begin(5, m_first.get()));
}

TEST_F(JobsInProgressTest, AConnectionIsNeededAsLongAsItHasAJobOrWaits) {
  JobsInProgress jobs(1);
  auto job = jobs.begin(5, m_first.get());
  EXPECT_TRUE(jobs.isNeeded(m_first.get()));
  EXPECT_FALSE(jobs.isNeeded(m_second.get()));
  auto wait = jobs.wait(m_first.get());
  job.reset();
  EXPECT_TRUE(jobs.isNeeded(m_first.get()));
  EXPECT_TRUE(jobs.begin(5, m_second.get())) << "a wait is no job";
  wait.reset();
  EXPECT_FALSE(jobs.isNeeded(m_first.get()));
}

TEST_F(JobsInProgressTest, AJobThatWasRefusedLeavesNothing) {
  JobsInProgress jobs(1);
  const auto job = jobs.begin(5, m_first.get());
  EXPECT_FALSE(jobs.begin(5, m_second.get()));
  EXPECT_FALSE(jobs.isNeeded(m_second.get()));
}

TEST_F(JobsInProgressTest, AMarkMayOutliveTheList) {
  JobsInProgress::Mark job;
  {
    JobsInProgress jobs(1);
    job = jobs.begin(5, m_first.get());
  }
  job.reset();
}

}  // namespace
}  // namespace aps
