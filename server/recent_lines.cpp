#include "server/recent_lines.h"

#include <algorithm>

namespace aps {

void RecentLines::add(const std::string& line, Shelf shelf) noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  Lines& on = shelf == Shelf::kHistory ? m_history : m_refusals;
  on.lines.push_back({m_last + 1, line.substr(0, kLineBytes)});
  ++m_last;
  on.bytes += on.lines.back().text.size();
  while (on.lines.size() > kLines || on.bytes > kBytes) {
    on.bytes -= on.lines.front().text.size();
    on.lines.pop_front();
  }
} catch (...) {
}

std::vector<std::string> RecentLines::latest(std::size_t count) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto& history = m_history.lines;
  const auto& refusals = m_refusals.lines;
  // Half of the places for each, and what one leaves free for the other.
  const std::size_t half = count / 2;
  const std::size_t refused = std::min(refusals.size(), count - std::min(count - half, history.size()));
  const std::size_t kept = std::min(history.size(), count - refused);
  std::vector<const Line*> chosen;
  for (std::size_t i = history.size() - kept; i < history.size(); ++i)
    chosen.push_back(&history[i]);
  for (std::size_t i = refusals.size() - refused; i < refusals.size(); ++i)
    chosen.push_back(&refusals[i]);
  std::sort(chosen.begin(), chosen.end(), [](const Line* a, const Line* b) { return a->number < b->number; });
  std::vector<std::string> lines;
  for (const Line* line : chosen)
    lines.push_back(line->text);
  return lines;
}

}  // namespace aps
