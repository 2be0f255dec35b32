#include "client/job_board.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace printclient {

std::uint64_t JobBoard::add(BoardJob job, std::shared_ptr<CancelRequest> cancel) {
  std::uint64_t number = 0;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    number = addLocked(std::move(job), std::move(cancel));
  }
  tellWatches(true);
  return number;
}

std::uint64_t JobBoard::addLocked(BoardJob job, std::shared_ptr<CancelRequest> cancel) {
  makeRoomLocked();
  const std::uint64_t number = ++m_lastNumber;
  job.number = number;
  job.change = m_orderChange = ++m_count;
  m_jobs[number] = {std::move(job), std::move(cancel)};
  return number;
}

void JobBoard::makeRoomLocked() {
  if (m_jobs.size() < kMost) return;
  const auto over = std::find_if(m_jobs.begin(), m_jobs.end(),
                                 [](const auto& numbered) { return isOver(numbered.second.job.stage); });
  m_jobs.erase(over != m_jobs.end() ? over : m_jobs.begin());
}

void JobBoard::change(std::uint64_t number, const std::function<void(BoardJob&)>& change) {
  std::shared_ptr<CancelRequest> gone;  // given back after the lock
  bool isStage = false;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = m_jobs.find(number);
    if (found == m_jobs.end()) return;
    BoardJob& job = found->second.job;
    const JobStage before = job.stage;
    change(job);
    if (isOver(before)) job.stage = before;
    if (isOver(job.stage)) {
      job.isCanceling = false;
      gone.swap(found->second.cancel);
    }
    job.number = number;
    job.change = ++m_count;
    job.changed = BoardJob::Clock::now();
    isStage = job.stage != before;
  }
  tellWatches(isStage);
}

// The oldest job of that name that failed without a word of the server, and otherwise the oldest that still comes.
JobBoard::Entry* JobBoard::explainedLocked(const BoardJob& failed) {
  Entry* arriving = nullptr;
  for (auto& [number, entry] : m_jobs) {
    const BoardJob& job = entry.job;
    if (job.server != failed.server || job.printer != failed.printer || job.isExplained || job.isAgain) continue;
    if (!failed.title.empty() && job.title != failed.title) continue;
    if (job.stage == JobStage::kFailed || job.stage == JobStage::kCanceled) return &entry;
    if (job.stage == JobStage::kArriving && arriving == nullptr) arriving = &entry;
  }
  return arriving;
}

void JobBoard::explain(const BoardJob& failed) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (Entry* const entry = explainedLocked(failed)) {
      BoardJob& job = entry->job;
      job.isExplained = true;
      if (job.stage != JobStage::kCanceled) {
        job.cause = failed.cause;
        job.remedy = failed.remedy;
      }
      job.change = ++m_count;
      job.changed = BoardJob::Clock::now();
    } else {
      BoardJob added = failed;
      added.stage = JobStage::kFailed;
      added.isExplained = true;
      addLocked(std::move(added), nullptr);
    }
  }
  tellWatches(true);
}

std::optional<BoardJob> JobBoard::find(std::uint64_t number) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(number);
  if (found == m_jobs.end()) return std::nullopt;
  return found->second.job;
}

std::shared_ptr<CancelRequest> JobBoard::cancelOf(std::uint64_t number) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(number);
  return found == m_jobs.end() ? nullptr : found->second.cancel;
}

void JobBoard::setPrinters(std::vector<BoardPrinter> printers) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_printers == printers) return;
    m_printers.swap(printers);
    m_printersChange = ++m_count;
  }
  tellWatches(false);
}

void JobBoard::setServer(int server, BoardServer state) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    BoardServer& known = m_servers[server];
    if (known == state) return;
    std::swap(known, state);
    m_serversChange = ++m_count;
  }
  tellWatches(false);
}

JobBoard::News JobBoard::newerThan(std::uint64_t count) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  News news;
  news.count = m_count;
  if (m_orderChange > count || count == 0) news.order.emplace();
  for (auto at = m_jobs.rbegin(); at != m_jobs.rend(); ++at) {
    if (news.order) news.order->push_back(at->first);
    if (at->second.job.change > count) news.jobs.push_back(at->second.job);
  }
  if (m_printersChange > count || count == 0) news.printers = m_printers;
  if (m_serversChange > count || count == 0) {
    news.servers.emplace();
    for (const auto& [number, server] : m_servers)
      news.servers->push_back(server);
  }
  return news;
}

void JobBoard::tellWatches(bool isStage) {
  const std::lock_guard<std::mutex> guard(m_watchLock);
  for (const auto& [of, onChange] : m_watches)
    if (isStage || of == Watch::Of::kEverything) onChange();
}

JobBoard::Watch::Watch(JobBoard& board, std::function<void()> onChange, Of of) : m_board(board) {
  const std::lock_guard<std::mutex> guard(board.m_watchLock);
  m_place = board.m_watches.emplace(board.m_watches.end(), of, std::move(onChange));
}

JobBoard::Watch::~Watch() {
  const std::lock_guard<std::mutex> guard(m_board.m_watchLock);
  m_board.m_watches.erase(m_place);
}

}  // namespace printclient
