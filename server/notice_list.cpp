#include "server/notice_list.h"

#include "corvane/base/text.h"
#include "corvane/components/program_monitor_c.h"

namespace aps {
namespace {

std::size_t unitsOf(const std::wstring& text) {
  std::size_t units = 0;
  corvane::forEachUtf16Unit(text, [&](std::uint16_t) { ++units; });
  return units;
}

std::size_t unitsOf(const CS_Notice& notice) {
  std::size_t units = unitsOf(notice.kind) + unitsOf(notice.line);
  for (const auto& [name, value] : notice.values)
    units += unitsOf(name) + unitsOf(value);
  return units;
}

void cut(std::wstring& text) {
  if (text.size() > CS_ProgramMonitor_c::kMaxNoticeText) text.resize(CS_ProgramMonitor_c::kMaxNoticeText);
}

void cut(CS_Notice& notice) {
  cut(notice.kind);
  cut(notice.line);
  if (notice.values.size() > CS_Notice::kMaxValues) notice.values.resize(CS_Notice::kMaxValues);
  for (auto& [name, value] : notice.values) {
    cut(name);
    cut(value);
  }
}

}  // namespace

void NoticeList::add(CS_Notice notice) {
  cut(notice);
  const std::size_t units = unitsOf(notice);
  const std::lock_guard<std::mutex> guard(m_lock);
  m_entries.push_back({m_latest + 1, std::chrono::system_clock::now(), std::move(notice)});
  ++m_latest;
  m_units += units;
  while (m_entries.size() > protocol::Notices::kKept || m_units > kUnits) {
    m_units -= unitsOf(m_entries.front().notice);
    m_entries.pop_front();
  }
  m_changed.notify_all();
}

NoticeList::Answer NoticeList::after(int number, std::chrono::milliseconds wait, const std::atomic<bool>& cancelled) {
  std::unique_lock<std::mutex> guard(m_lock);
  if (number >= 0) {
    m_changed.wait_for(guard, wait, [&] { return m_closed || cancelled || m_latest != number; });
  }
  Answer answer;
  answer.latest = m_latest;
  for (const Entry& entry : m_entries) {
    if (number >= 0 && entry.number > number) answer.entries.push_back(entry);
  }
  return answer;
}

void NoticeList::wake() {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_changed.notify_all();
}

void NoticeList::close() {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_closed = true;
  m_changed.notify_all();
}

}  // namespace aps
