#include "client/notices/job_notices.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>
#include <utility>

namespace printclient {
namespace {

std::string sentence(std::string text) {
  if (text.empty()) return text;
  if (text.front() >= 'a' && text.front() <= 'z') text.front() = static_cast<char>(text.front() - 'a' + 'A');
  if (text.back() != '.' && text.back() != '!' && text.back() != '?') text += '.';
  return text;
}

DesktopNotice noticeOf(const BoardJob& job) {
  const bool hasFailed = job.stage == JobStage::kFailed;
  const std::string title = job.title.empty() ? "A job" : fmt::format("\"{}\"", job.title);
  DesktopNotice notice;
  notice.title = fmt::format("{} {}", title, hasFailed ? "was not printed" : "waits at the printer");
  notice.isUrgent = hasFailed;
  notice.text = job.printer.empty() ? "" : fmt::format("{}: ", job.printer);
  notice.text += sentence(job.cause);
  if (!job.remedy.empty()) notice.text += " " + sentence(job.remedy);
  return notice;
}

}  // namespace

JobNotices::JobNotices(JobBoard& board, OnFailure onFailure, Open open, std::chrono::milliseconds patience)
    : m_board(board), m_onFailure(std::move(onFailure)), m_open(std::move(open)), m_patience(patience) {
  m_watch = std::make_unique<JobBoard::Watch>(
      board,
      [this] {
        {
          const std::lock_guard<std::mutex> guard(m_lock);
          m_hasNews = true;
        }
        m_changed.notify_all();
      },
      JobBoard::Watch::Of::kStages);
  m_thread = std::thread([this] { run(); });
}

JobNotices::~JobNotices() {
  m_watch.reset();
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isStopping = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void JobNotices::run() noexcept {
  for (;;) {
    {
      std::unique_lock<std::mutex> guard(m_lock);
      const auto isAwaited = [this] { return m_hasNews || m_isStopping; };
      const auto due = std::min_element(m_heldBack.begin(), m_heldBack.end(),
                                        [](const auto& one, const auto& other) { return one.second < other.second; });
      if (due == m_heldBack.end()) {
        m_changed.wait(guard, isAwaited);
      } else {
        m_changed.wait_until(guard, due->second, isAwaited);
      }
      if (m_isStopping) break;
      m_hasNews = false;
    }
    try {
      look();
    } catch (const std::exception&) {
      // No memory at the moment.
    }
  }
  m_desktop.reset();  // on the thread that it was made on
}

void JobNotices::look() {
  const JobBoard::News news = m_board.newerThan(m_seen);
  m_seen = news.count;
  for (const BoardJob& job : news.jobs) {
    if (job.stage == JobStage::kFailed && !job.isExplained && m_shown.count(job.number) == 0) {
      m_heldBack.emplace(job.number, Clock::now() + m_patience);
    } else {
      show(job);
    }
  }
  for (auto held = m_heldBack.begin(); held != m_heldBack.end();) {
    const auto job = m_board.find(held->first);
    const bool isDue = !job || job->isExplained || held->second <= Clock::now();
    if (isDue && job) show(*job);
    held = isDue ? m_heldBack.erase(held) : std::next(held);
  }
  if (news.order) std::erase_if(m_shown, [this](const auto& shown) { return !m_board.find(shown.first); });
}

void JobNotices::show(const BoardJob& job) {
  const bool isToShow = job.stage == JobStage::kFailed || job.stage == JobStage::kStopped;
  const auto shown = m_shown.find(job.number);
  if (!isToShow || (shown != m_shown.end() && shown->second == job.stage)) return;
  m_shown[job.number] = job.stage;
  if (m_desktop == nullptr) m_desktop = m_open();
  const std::string why = m_desktop->show(noticeOf(job));
  if (!why.empty() && !std::exchange(m_hasFailed, true)) m_onFailure(why);
}

}  // namespace printclient
