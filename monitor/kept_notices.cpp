#include "monitor/kept_notices.h"

#include "corvane/local_time.h"

#include <chrono>
#include <new>
#include <string>
#include <utility>

namespace mg {

KeptNotices& KeptNotices::instance() {
  alignas(KeptNotices) static unsigned char storage[sizeof(KeptNotices)];
  static auto* const kept = new (storage) KeptNotices;
  return *kept;
}

void KeptNotices::keep(CS_Notice notice) noexcept try {
  const std::string now = corvane::localTimeText(std::chrono::system_clock::now());
  notice.line += L" (Told late: it ended at " + std::wstring(now.begin(), now.end()) + L".)";
  for (auto& [name, value] : notice.values) {
    if (value.size() > kMostText) value.resize(kMostText);
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_notices.size() == kMost) m_notices.erase(m_notices.begin());
  m_notices.push_back(std::move(notice));
} catch (...) {  // it is in the log
}

void KeptNotices::tellAll(CS_ProgramMonitor& monitor) noexcept {
  std::vector<CS_Notice> notices;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    notices.swap(m_notices);
  }
  for (const CS_Notice& notice : notices)
    monitor.notify(notice);
}

void KeptNotices::clear() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_notices.clear();
}

}  // namespace mg
