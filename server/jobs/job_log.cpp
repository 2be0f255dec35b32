#include "server/jobs/job_log.h"

#include "programs/text.h"
#include "protocol/job_json.h"

#include <exception>
#include <fmt/format.h>
#include <utility>

namespace aps {
namespace {

std::string lineOf(const JobHistory::Change& change) {
  return protocol::jobText(change.record, fmt::format(",\"change\":{}", change.number)) + "\n";
}

}  // namespace

JobLog::JobLog(Settings settings, JobHistory& history, Log& log)
    : m_settings(std::move(settings)), m_history(history), m_log(log), m_file(m_settings.path, m_settings.limitBytes) {
  m_history.onWritten([this] { wake(); });
}

void JobLog::start() {
  m_writer = std::thread([this] { run(); });
}

void JobLog::finish() noexcept {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (std::exchange(m_isStopping, true)) return;
  }
  m_changed.notify_all();
  if (m_writer.joinable()) m_writer.join();
}

void JobLog::wake() noexcept {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isWanted = true;
  }
  m_changed.notify_all();
}

void JobLog::reopen() noexcept {
  m_file.reopen();
  wake();
}

void JobLog::run() noexcept {
  std::unique_lock<std::mutex> guard(m_lock);
  const auto isStopping = [this] { return m_isStopping; };
  while (true) {
    m_changed.wait(guard, [this] { return m_isStopping || m_isWanted; });
    m_changed.wait_for(guard, m_settings.gathering, isStopping);
    m_isWanted = false;
    const bool isLast = m_isStopping;  // the history writes no more
    Outcome outcome = Outcome::kMore;
    for (int left = kLastOnes; outcome == Outcome::kMore && (left > 0 || !isLast); --left) {
      guard.unlock();
      outcome = writeSome();
      guard.lock();
    }
    if (isLast) return;
    if (outcome != Outcome::kTrouble) continue;
    m_isWanted = true;
    m_changed.wait_for(guard, m_settings.betweenTries, isStopping);
  }
}

JobLog::Outcome JobLog::writeSome() noexcept try {
  markWritten();
  if (m_changes.empty()) {
    m_changes = m_history.changesToLog(kAtOnce);
    for (const JobHistory::Change& change : m_changes)
      m_lines += lineOf(change);
  }
  const std::string why = m_file.write(m_lines);
  if (!why.empty()) {
    tellTrouble(why);
    return Outcome::kTrouble;
  }
  const bool isFull = m_changes.size() == kAtOnce;
  m_isWritten = true;
  markWritten();
  tellTrouble("");
  return isFull ? Outcome::kMore : Outcome::kDone;
} catch (const std::exception&) {
  return Outcome::kTrouble;  // of the history, which says so, or of memory
}

// Before others are taken, so that a history that takes nothing does not have the same lines written again and again.
void JobLog::markWritten() {
  if (!m_isWritten) return;
  if (!m_changes.empty()) m_history.haveBeenLogged(m_changes);
  m_changes.clear();
  m_lines.clear();
  m_isWritten = false;
}

void JobLog::tellTrouble(const std::string& why) {
  if (m_trouble.empty() == why.empty()) return;
  m_trouble = why;
  const std::string name = programs::fromPath(m_settings.path);
  if (!why.empty()) {
    m_log.failure(
        fmt::format("the log of jobs ({}) takes no lines: {}; jobs print all the same, and their records wait in "
                    "the history: make room, or the folder, or let this account write there",
                    name, why));
  } else {
    m_log.line(fmt::format("the log of jobs ({}) goes on; {} records went from the history before they were written",
                           name, m_history.takeDroppedChanges()));
  }
}

}  // namespace aps
