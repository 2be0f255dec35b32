#include "client/jobs_at_printers.h"

#include <algorithm>
#include <utility>

namespace printclient {

void JobsAtPrinters::add(const FollowedJob& job) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_jobs[job.listed] = {job, false};
  if (m_jobs.size() > kMost) m_jobs.erase(m_jobs.begin());
}

void JobsAtPrinters::remove(std::uint64_t listed) noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_jobs.erase(listed);
}

std::optional<FollowedJob> JobsAtPrinters::find(int server, const std::wstring& printer,
                                                const std::wstring& name) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = std::find_if(m_jobs.rbegin(), m_jobs.rend(), [&](const auto& entry) {
    const FollowedJob& job = entry.second.job;
    return job.origin.server == server && !job.origin.isAgain && job.printer == printer && job.name == name;
  });
  if (found == m_jobs.rend()) return std::nullopt;
  return found->second.job;
}

void JobsAtPrinters::wantEnd(std::uint64_t listed) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (const auto found = m_jobs.find(listed); found != m_jobs.end()) found->second.isWanted = true;
}

std::optional<FollowedJob> JobsAtPrinters::takeWanted(std::uint64_t listed) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = m_jobs.find(listed);
  if (found == m_jobs.end() || !std::exchange(found->second.isWanted, false)) return std::nullopt;
  return found->second.job;
}

}  // namespace printclient
