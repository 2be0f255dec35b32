#include "client/job_follower.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>

namespace printclient {

using protocol::PaperState;

JobFollower::Pace JobFollower::Pace::faster(int factor) const {
  Pace result = *this;
  result.first /= factor;
  result.longest /= factor;
  result.silent /= factor;
  return result;
}

JobFollower::JobFollower(OnNews onNews, const Pace& pace, Open open)
    : m_onNews(std::move(onNews)), m_pace(pace), m_open(open), m_news(pace.newsAtOnce, pace.newsPerSecond) {
  m_thread = std::thread([this] { run(); });
}

JobFollower::~JobFollower() {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isStopping = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void JobFollower::follow(FollowedJob job, const TakenJob& taken) noexcept try {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_arrived.size() >= m_pace.most) return;
    m_arrived.push_back({std::move(job), taken.isForPaper, taken.queued});
  }
  m_changed.notify_all();
} catch (const std::exception&) {
  // Without memory nobody is told; the job is where its line says.
}

void JobFollower::cancel(std::uint64_t listed) noexcept try {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_toCancel.push_back(listed);
  }
  m_changed.notify_all();
} catch (const std::exception&) {
  // Without memory the job goes on; the person sees that and tries again.
}

bool JobFollower::await(std::deque<Arrived>& arrived) {
  std::unique_lock<std::mutex> guard(m_lock);
  const auto isAwaited = [this] { return m_isStopping || !m_arrived.empty() || !m_toCancel.empty(); };
  const auto due = std::min_element(m_printers.begin(), m_printers.end(),
                                    [](const Printer& one, const Printer& other) { return one.next < other.next; });
  if (due == m_printers.end()) {
    m_changed.wait(guard, isAwaited);
  } else {
    m_changed.wait_until(guard, due->next, isAwaited);
  }
  arrived.swap(m_arrived);
  m_unwanted.insert(m_toCancel.begin(), m_toCancel.end());
  m_toCancel.clear();
  return !m_isStopping;
}

void JobFollower::run() noexcept {
  for (std::deque<Arrived> arrived; await(arrived); arrived.clear()) {
    try {
      for (const Arrived& job : arrived)
        begin(job);
      if (!m_unwanted.empty()) cancelSome();
      const auto now = Clock::now();
      const auto due = std::find_if(m_printers.begin(), m_printers.end(),
                                    [now](const Printer& printer) { return printer.next <= now; });
      if (due == m_printers.end()) continue;
      lookAt(*due);
      if (due->jobs.empty()) m_printers.erase(due);
    } catch (const std::exception&) {
      // No memory at the moment.
    }
  }
}

void JobFollower::begin(const Arrived& arrived) {
  if (arrived.queued == nullptr) {
    return tell(arrived.job, {arrived.isForPaper ? PaperState::kPrinted : PaperState::kHandedOn, "", ""}, true);
  }
  const QueuedJob& queued = *arrived.queued;
  tell(arrived.job, queued.progress, true);
  if (isFinal(queued.progress.state)) return;
  if (m_count >= m_pace.most) {
    tell(arrived.job,
         {PaperState::kUnknown, fmt::format("is followed for {} jobs already, which is the limit", m_pace.most),
          "see whether it has come out"},
         false);
    return;
  }
  auto printer = std::find_if(m_printers.begin(), m_printers.end(), [&queued](const Printer& candidate) {
    const PrinterTarget& target = candidate.jobs.front().queued.printer;
    return target.queue == queued.printer.queue && target.uri == queued.printer.uri;
  });
  if (printer == m_printers.end()) {
    printer = m_printers.insert(m_printers.end(), {{}, Clock::now() + m_pace.first, m_pace.first});
  }
  printer->jobs.push_back({arrived.job, queued});
  ++m_count;
}

void JobFollower::cancelSome() {
  for (Printer& printer : m_printers) {
    for (auto job = printer.jobs.begin(); job != printer.jobs.end();) {
      const auto next = std::next(job);
      if (m_unwanted.erase(job->job.listed) != 0) cancelAt(printer, job);
      job = next;
    }
  }
  m_printers.remove_if([](const Printer& printer) { return printer.jobs.empty(); });
  while (m_unwanted.size() > kMostUnwanted)
    m_unwanted.erase(m_unwanted.begin());
}

void JobFollower::cancelAt(Printer& printer, std::list<Followed>::iterator job) {
  const std::uint64_t listed = job->job.listed;
  try {
    const std::unique_ptr<PrinterQueue> queue = m_open(job->queued.printer, m_isStopping);
    queue->cancel(job->queued);
    printer.jobs.splice(printer.jobs.begin(), printer.jobs, job);
    lookAtFirst(printer, *queue);
    printer.pause = m_pace.first;
    printer.next = Clock::now() + printer.pause;
  } catch (const std::runtime_error& failure) {
    if (m_onFailure) m_onFailure(listed, failure.what());
  }
}

void JobFollower::lookAt(Printer& printer) {
  try {
    const std::unique_ptr<PrinterQueue> queue = m_open(printer.jobs.front().queued.printer, m_isStopping);
    bool hasChanged = false;
    for (std::size_t looks = std::min(printer.jobs.size(), m_pace.atATime); looks > 0 && !m_isStopping; --looks)
      hasChanged |= lookAtFirst(printer, *queue);
    printer.pause = hasChanged ? m_pace.first : std::min(2 * printer.pause, m_pace.longest);
  } catch (const std::runtime_error&) {
    // Perhaps only this job cannot be asked for.
    printer.jobs.splice(printer.jobs.end(), printer.jobs, printer.jobs.begin());
    printer.pause = std::min(2 * printer.pause, m_pace.silent);
  }
  dropOld(printer);
  printer.next = Clock::now() + printer.pause;
}

bool JobFollower::lookAtFirst(Printer& printer, PrinterQueue& queue) {
  Followed& followed = printer.jobs.front();
  const JobProgress progress = queue.look(followed.queued);
  const bool hasChanged = progress != followed.queued.progress;
  followed.queued.progress = progress;
  if (hasChanged) tell(followed.job, progress, false);
  if (isFinal(progress.state)) {
    printer.jobs.pop_front();
    --m_count;
  } else {
    printer.jobs.splice(printer.jobs.end(), printer.jobs, printer.jobs.begin());
  }
  return hasChanged;
}

void JobFollower::dropOld(Printer& printer) {
  for (auto job = printer.jobs.begin(); job != printer.jobs.end();) {
    const auto next = std::next(job);
    if (Clock::now() - job->queued.since >= m_pace.followed) {
      tell(job->job, {PaperState::kUnknown, "still had it after a day", "see whether it has come out"}, false);
      printer.jobs.erase(job);
      --m_count;
    }
    job = next;
  }
}

void JobFollower::tell(const FollowedJob& job, const JobProgress& progress, bool isFirst) {
  while (!m_news.take()) {
    if (progress.state == PaperState::kHandedOn) return;
    std::unique_lock<std::mutex> guard(m_lock);
    m_changed.wait_for(guard, std::chrono::milliseconds(1000 / m_pace.newsPerSecond),
                       [this] { return m_isStopping.load(); });
    if (m_isStopping) return;
  }
  m_onNews(job, progress, isFirst);
}

}  // namespace printclient
