#include "server/log_lines.h"

#include <algorithm>
#include <fmt/format.h>

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

namespace {

constexpr char kOtherKinds[] = "";

}  // namespace

bool Repeats::take(const std::string& kind, const Line& line, Clock::time_point now) {
  const std::lock_guard<std::mutex> guard(m_lock);
  auto known = m_kinds.find(kind);
  if (known == m_kinds.end()) {
    const bool isRoom = m_kinds.size() < kKinds;
    known = m_kinds.try_emplace(isRoom ? kind : std::string(kOtherKinds)).first;
    if (known->second.written == 0) known->second.begin = now;
  }
  Kind& entry = known->second;
  if (entry.written < (line.isFailure ? kFirst : kFirstOrdinary)) {
    ++entry.written;
    return true;
  }
  ++entry.counted;
  entry.latest = line;
  return false;
}

Repeats::Clock::time_point Repeats::dueAt() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  auto earliest = Clock::time_point::max();
  for (const auto& [name, kind] : m_kinds)
    earliest = std::min(earliest, kind.end());
  return earliest;
}

Repeats::Line Repeats::summary(const Kind& kind, Clock::time_point now) {
  const auto time = std::chrono::duration_cast<std::chrono::seconds>(now - kind.begin);
  return {fmt::format("{} more of these within {} s, the latest: {}", kind.counted, time.count(), kind.latest.text),
          kind.latest.isFailure};
}

std::vector<Repeats::Line> Repeats::due(Clock::time_point now) {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::vector<Line> lines;
  for (auto at = m_kinds.begin(); at != m_kinds.end();) {
    Kind& kind = at->second;
    if (now < kind.end()) {
      ++at;
    } else if (kind.counted == 0) {
      at = m_kinds.erase(at);
    } else {
      lines.push_back(summary(kind, now));
      kind.counted = 0;
      kind.length = std::min(2 * kind.length, kLongestWindow);
      kind.begin = now;
      ++at;
    }
  }
  return lines;
}

std::vector<Repeats::Line> Repeats::all(Clock::time_point now) {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::vector<Line> lines;
  for (const auto& [name, kind] : m_kinds) {
    if (kind.counted > 0) lines.push_back(summary(kind, now));
  }
  m_kinds.clear();
  return lines;
}

}  // namespace aps
