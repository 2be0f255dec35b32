#include "admin/sessions/outcome_watch.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace admin {
namespace {

constexpr long long kPause = 500;  // milliseconds between attempts to reach the server

}  // namespace

std::optional<JobOutcome> OutcomeWatch::wait(const AwaitedJob& job, Clock::time_point deadline) {
  waitUntil([this] { return m_outcome.has_value(); }, job, deadline);
  return m_outcome;
}

std::optional<JobPaper> OutcomeWatch::waitForPaper(const AwaitedJob& job, Clock::time_point deadline,
                                                   const OnChange& onChange) {
  std::optional<JobPaper> latest;
  const auto isFinal = [&] {
    for (; !m_news.empty(); m_news.pop_front()) {
      if (latest == m_news.front()) continue;
      latest = m_news.front();
      onChange(*latest);
    }
    return latest && protocol::isFinal(latest->state);
  };
  waitUntil(isFinal, job, deadline);
  return latest;
}

// The record says so before the port monitor has its answer.
bool OutcomeWatch::isHeld(const AwaitedJob& job, int session) try {
  if (!m_server) return false;
  protocol::Jobs wanted;
  wanted.most = protocol::Jobs::kMost;
  wanted.session = session;
  const std::vector<protocol::JobRecord> records = m_server->jobs(wanted).jobs;
  const auto latest = std::find_if(records.begin(), records.end(),
                                   [&job](const protocol::JobRecord& record) { return job.isOf(record); });
  return latest != records.end() && latest->state == protocol::JobState::kHeld;
} catch (const Failure& failure) {
  lose(failure);
  return false;
}

bool OutcomeWatch::waitUntil(const std::function<bool()>& isDone, const AwaitedJob& job, Clock::time_point deadline) {
  while (!isDone()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (!m_server && left > 0) connect();
    if (m_server) ask(job, std::max(left, 0LL));
    if (isDone()) break;
    if (left <= 0) return false;
    if (!m_server) std::this_thread::sleep_for(std::chrono::milliseconds(std::min(left, kPause)));
  }
  return true;
}

void OutcomeWatch::connect() try {
  m_server = std::make_unique<ApplicationServer>(m_port);
  // The numbers start over when the server restarts. Notices that the first server sent before this job began are
  // skipped.
  const int latest = m_server->notices(-1, 0).latest;
  if (!m_wasThere || latest < m_after) m_after = m_isFirst ? latest : 0;
  m_wasThere = true;
  m_isFirst = false;
  m_why = "the time for it is over";
} catch (const Failure& failure) {
  m_isFirst = false;
  lose(failure);
}

void OutcomeWatch::ask(const AwaitedJob& job, long long left) try {
  const auto wait = static_cast<unsigned>(std::min(left, kLongestWait));
  const protocol::Notices::Answer news = m_server->notices(m_after, wait, kPatience);
  for (const protocol::Notice& notice : news.notices) {
    if (job.isOf(notice) && !m_outcome) m_outcome = JobOutcome::of(notice);
    if (isPaperOf(job, notice)) m_news.push_back(JobPaper::of(notice));
  }
  m_after = news.latest;
} catch (const Failure& failure) {
  lose(failure);
}

void OutcomeWatch::lose(const Failure& failure) {
  m_server.reset();
  m_why = failure.what();
  m_remedy = failure.remedy();
}

}  // namespace admin
