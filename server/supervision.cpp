#include "server/supervision.h"

#include "corvane/base/process.h"
#include "server/if_possible.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace aps {
namespace {

// So that no time overflows; signs of life may come more often than they are wanted.
constexpr std::chrono::hours kLongestWatchdog{24};

std::string statusOf(const std::vector<std::string>& listeners) {
  std::string status = fmt::format("listens on {}", listeners.front());
  if (listeners.size() > 1) {
    status += fmt::format(", for print clients of other machines on {}",
                          fmt::join(listeners.begin() + 1, listeners.end(), ", "));
  }
  return status;
}

}  // namespace

Supervision::Supervision(programs::ServiceManager manager, std::shared_ptr<Log> log, std::function<void()> look)
    : m_manager(std::move(manager)), m_log(std::move(log)), m_calls(std::move(look)) {}

Supervision::~Supervision() {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isStopping = true;
  }
  m_calls.stop();
  m_stopped.notify_all();
  if (m_watcher.joinable()) m_watcher.join();
}

void Supervision::tellLocked(const std::string& assignments) {
  const std::string failure = m_manager.tell(assignments);
  if (failure.empty() || m_hasComplained) return;
  m_hasComplained = true;
  m_log->failure(fmt::format("{}; it may take this server for one that does not start or hangs, and end it", failure));
}

void Supervision::ready(std::vector<std::string> listeners) {
  if (!isThere()) return;
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_isStopping) return;
  m_listeners = std::move(listeners);
  m_status = statusOf(m_listeners);
  m_isReady = true;
  tellLocked(fmt::format("READY=1\nMAINPID={}\nSTATUS={}", corvane::processId(), m_status));
  if (m_manager.watchdog().count() > 0) m_watcher = std::thread([this] { watch(); });
}

void Supervision::reload(const std::function<void()>& work) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const bool isTold = m_isReady && !m_isStopping;
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch());
  if (isTold) tellLocked(fmt::format("RELOADING=1\nMONOTONIC_USEC={}\nSTATUS=reopens its log", now.count()));
  work();
  if (isTold) tellLocked(fmt::format("READY=1\nSTATUS={}", m_status));
}

void Supervision::stopping() {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_isStopping) return;
  m_isStopping = true;
  m_calls.stop();
  m_stopped.notify_all();
  tellLocked("STOPPING=1\nSTATUS=ends its connections");
}

std::string Supervision::callAll(Clock::duration limit) {
  for (const std::string& listener : m_listeners) {
    const std::string failure = m_calls.call(listener, Clock::now() + limit);
    if (!failure.empty()) return fmt::format("{} does not answer this server's own call: {}", listener, failure);
  }
  return {};
}

void Supervision::judge(const std::string& failure) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_isStopping) return;
  const bool wasUnanswered = m_isUnanswered;
  m_isUnanswered = !failure.empty();
  if (m_isUnanswered) {
    tellLocked(fmt::format("STATUS={}", failure));
    if (!wasUnanswered)
      m_log->failure(fmt::format("{}; the service manager ends this server unless that changes", failure));
    return;
  }
  if (!wasUnanswered) return tellLocked("WATCHDOG=1");
  tellLocked(fmt::format("WATCHDOG=1\nSTATUS={}", m_status));
  m_log->line("this server's own calls are answered again");
}

// A sign of life comes after half of the time. A call that is not answered is given up after a quarter, and repeated,
// so that one lost call ends nobody.
void Supervision::watch() noexcept {
  const auto time = std::min<Clock::duration>(m_manager.watchdog(), kLongestWatchdog);
  auto next = Clock::now() + time / 2;
  std::unique_lock<std::mutex> lock(m_lock);
  while (!m_stopped.wait_until(lock, next, [this] { return m_isStopping; })) {
    const auto begun = Clock::now();
    lock.unlock();
    bool isAlive = false;
    ifPossible([&] {
      const std::string failure = callAll(time / 4 / static_cast<Clock::rep>(m_listeners.size()));
      judge(failure);
      isAlive = failure.empty();
    });
    lock.lock();
    next = begun + (isAlive ? time / 2 : time / 4);
  }
}

}  // namespace aps
