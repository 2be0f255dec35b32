#include "client/sinks/printer/device_jobs.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

// The state of the one that tells of the job; 0 for none.
int telling(const std::vector<int>& states) {
  std::vector<JobStatus> found;
  for (const int state : states) {
    found.emplace_back();
    found.back().state = state;
  }
  const auto one = tellingOne(found);
  return one ? one->state : 0;
}

TEST(DeviceJobs, TheOnlyOneThatWasBegunTellsOfTheJob) {
  EXPECT_EQ(telling({}), 0);
  for (const int state : {JobStatus::kProcessing, JobStatus::kStopped, JobStatus::kCanceled, JobStatus::kAborted,
                          JobStatus::kCompleted}) {
    EXPECT_EQ(telling({state}), state);
    EXPECT_EQ(telling({JobStatus::kPending, state, JobStatus::kHeld}), state);
  }
  EXPECT_EQ(telling({JobStatus::kPending}), 0);
  EXPECT_EQ(telling({JobStatus::kHeld}), 0);
}

TEST(DeviceJobs, OfSeveralNothingIsKnownUnlessAllWereGivenUp) {
  EXPECT_EQ(telling({JobStatus::kAborted, JobStatus::kCanceled}), JobStatus::kAborted);
  EXPECT_EQ(telling({JobStatus::kAborted, JobStatus::kCompleted}), 0);
  EXPECT_EQ(telling({JobStatus::kCompleted, JobStatus::kCompleted}), 0);
  EXPECT_EQ(telling({JobStatus::kAborted, JobStatus::kProcessing}), 0);
}

}  // namespace
}  // namespace printclient
