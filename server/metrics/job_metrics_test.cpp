#include "server/metrics/job_metrics.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

using protocol::JobRecord;
using protocol::JobState;

JobRecord job(JobState state, int milliseconds = 1500) {
  JobRecord record;
  record.state = state;
  record.bytes = 1000;
  record.milliseconds = {milliseconds, JobRecord::kNotReached, 7, 600};
  return record;
}

std::uint64_t endedAs(const JobMetrics& metrics, JobMetrics::Outcome outcome, FailureClass failure) {
  return metrics.counts().ended.at(static_cast<std::size_t>(outcome)).at(static_cast<std::size_t>(failure));
}

TEST(JobMetrics, AJobIsCountedByItsOutcomeAndOnlyAFailedOneByWhatItFailed) {
  JobMetrics metrics;
  using Outcome = JobMetrics::Outcome;
  for (const JobState delivered : {JobState::kDelivered, JobState::kPrinting, JobState::kPrinted})
    metrics.ended(job(delivered), FailureClass::kPrintClient);
  metrics.ended(job(JobState::kShown), FailureClass::kNone);
  metrics.ended(job(JobState::kCanceled), FailureClass::kPrintClient);
  metrics.ended(job(JobState::kFailed), FailureClass::kNotAttached);
  metrics.ended(job(JobState::kFailed), FailureClass::kPrintClient);
  EXPECT_EQ(endedAs(metrics, Outcome::kDelivered, FailureClass::kNone), 3u);
  EXPECT_EQ(endedAs(metrics, Outcome::kShown, FailureClass::kNone), 1u);
  EXPECT_EQ(endedAs(metrics, Outcome::kCanceled, FailureClass::kNone), 1u);
  EXPECT_EQ(endedAs(metrics, Outcome::kFailed, FailureClass::kNotAttached), 1u);
  EXPECT_EQ(endedAs(metrics, Outcome::kFailed, FailureClass::kPrintClient), 1u);
  EXPECT_EQ(endedAs(metrics, Outcome::kFailed, FailureClass::kPortMonitor), 0u);
  EXPECT_EQ(metrics.counts().bytes, 7000);
}

TEST(JobMetrics, StagesThatWereNotReachedAreNotCountedAndPaperIsCountedWhenItIsKnown) {
  JobMetrics metrics;
  metrics.ended(job(JobState::kPrinting), FailureClass::kNone);
  EXPECT_EQ(metrics.counts().stages[protocol::kCollecting].total(), 1u);
  EXPECT_EQ(metrics.counts().stages[protocol::kSending].total(), 0u);
  EXPECT_EQ(metrics.counts().stages[protocol::kTaking].total(), 1u);
  EXPECT_EQ(metrics.counts().stages[protocol::kPaper].total(), 0u);
  metrics.paperEnded(job(JobState::kPrinted));
  metrics.paperEnded(job(JobState::kCanceled));
  metrics.paperEnded(job(JobState::kFailed));
  EXPECT_EQ(metrics.counts().stages[protocol::kPaper].total(), 3u);
  EXPECT_DOUBLE_EQ(metrics.counts().stages[protocol::kPaper].sum, 1.8);
  EXPECT_EQ(metrics.counts().paper, (std::array<std::uint64_t, 3>{1, 1, 1}));
}

TEST(JobMetrics, ATimeIsCountedUpToTheFirstBoundThatItDoesNotPass) {
  JobMetrics::Histogram histogram;
  for (const double seconds : {0.0, 0.1, 0.11, 0.5, 1800.0, 1800.1})
    histogram.add(seconds);
  EXPECT_EQ(histogram.counts, (std::array<std::uint64_t, 10>{2, 2, 0, 0, 0, 0, 0, 0, 1, 1}));
  EXPECT_EQ(histogram.total(), 6u);
}

}  // namespace
}  // namespace aps
