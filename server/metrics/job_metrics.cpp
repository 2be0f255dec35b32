#include "server/metrics/job_metrics.h"

#include <algorithm>
#include <numeric>

namespace aps {
namespace {

using protocol::JobRecord;
using protocol::JobState;

JobMetrics::Outcome outcomeOf(JobState state) {
  switch (state) {
    case JobState::kShown:
      return JobMetrics::Outcome::kShown;
    case JobState::kFailed:
      return JobMetrics::Outcome::kFailed;
    case JobState::kCanceled:
      return JobMetrics::Outcome::kCanceled;
    default:
      return JobMetrics::Outcome::kDelivered;
  }
}

double secondsOf(int milliseconds) {
  return milliseconds / 1000.0;
}

}  // namespace

void JobMetrics::Histogram::add(double seconds) {
  const auto bound = std::lower_bound(kSeconds.begin(), kSeconds.end(), seconds);
  ++counts.at(static_cast<std::size_t>(bound - kSeconds.begin()));
  sum += seconds;
}

std::uint64_t JobMetrics::Histogram::total() const {
  return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

void JobMetrics::ended(const JobRecord& job, FailureClass failure) noexcept {
  const Outcome outcome = outcomeOf(job.state);
  const FailureClass counted = outcome == Outcome::kFailed ? failure : FailureClass::kNone;
  const std::lock_guard<std::mutex> guard(m_lock);
  ++m_counts.ended[static_cast<std::size_t>(outcome)][static_cast<std::size_t>(counted)];
  m_counts.bytes += std::max<std::int64_t>(job.bytes, 0);
  for (const auto stage : {protocol::kCollecting, protocol::kSending, protocol::kTaking}) {
    if (job.milliseconds[stage] != JobRecord::kNotReached) {
      m_counts.stages[stage].add(secondsOf(job.milliseconds[stage]));
    }
  }
}

void JobMetrics::paperEnded(const JobRecord& job) noexcept {
  const Paper paper = job.state == JobState::kPrinted    ? Paper::kPrinted
                      : job.state == JobState::kCanceled ? Paper::kCanceled
                                                         : Paper::kFailed;
  const std::lock_guard<std::mutex> guard(m_lock);
  ++m_counts.paper[static_cast<std::size_t>(paper)];
  const int time = job.milliseconds[protocol::kPaper];
  if (time != JobRecord::kNotReached) m_counts.stages[protocol::kPaper].add(secondsOf(time));
}

JobMetrics::Counts JobMetrics::counts() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_counts;
}

}  // namespace aps
