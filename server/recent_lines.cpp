#include "server/recent_lines.h"

#include <algorithm>

namespace aps {

void RecentLines::add(const std::string& line) noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_lines.push_back(line.substr(0, kLineBytes));
  m_bytes += m_lines.back().size();
  while (m_lines.size() > kLines || m_bytes > kBytes) {
    m_bytes -= m_lines.front().size();
    m_lines.pop_front();
  }
} catch (...) {
}

std::vector<std::string> RecentLines::latest(std::size_t count) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto wanted = static_cast<std::ptrdiff_t>(std::min(count, m_lines.size()));
  return {m_lines.end() - wanted, m_lines.end()};
}

}  // namespace aps
