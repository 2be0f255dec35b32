#include "server/notice_list.h"

#include "corvane/base/text.h"
#include "corvane/components/program_monitor_c.h"

#include <algorithm>

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
  add(0, std::move(notice));
}

void NoticeList::addOfClient(int session, CS_Notice notice) {
  add(session, std::move(notice));
}

void NoticeList::add(int session, CS_Notice notice) {
  cut(notice);
  const std::size_t units = unitsOf(notice);
  const std::lock_guard<std::mutex> guard(m_lock);
  if (session != 0) m_ofSessions.try_emplace(session);
  m_entries.push_back({{m_latest + 1, std::chrono::system_clock::now(), std::move(notice)}, session});
  ++m_latest;
  m_units += units;
  if (session != 0) {
    ++m_ofSessions[session];
    ++m_ofClients;
  }
  for (Place surplus = surplusLocked(); surplus != m_entries.end(); surplus = surplusLocked())
    dropLocked(surplus);
  m_changed.notify_all();
}

NoticeList::Place NoticeList::surplusLocked() {
  const auto most = std::max_element(m_ofSessions.begin(), m_ofSessions.end(),
                                     [](const auto& one, const auto& other) { return one.second < other.second; });
  if (most != m_ofSessions.end() && (most->second > kOfOneSession || m_ofClients > kOfClients)) {
    return std::find_if(m_entries.begin(), m_entries.end(),
                        [session = most->first](const Kept& kept) { return kept.session == session; });
  }
  const bool isTooMuch = m_entries.size() > protocol::Notices::kKept || m_units > kUnits;
  return isTooMuch ? m_entries.begin() : m_entries.end();
}

void NoticeList::dropLocked(const Place& at) {
  m_units -= unitsOf(at->notice);
  if (const auto session = m_ofSessions.find(at->session); session != m_ofSessions.end()) {
    if (--session->second == 0) m_ofSessions.erase(session);
    --m_ofClients;
  }
  m_entries.erase(at);
}

NoticeList::Answer NoticeList::after(int number, std::chrono::milliseconds wait, const std::atomic<bool>& cancelled) {
  std::unique_lock<std::mutex> guard(m_lock);
  if (number >= 0) {
    m_changed.wait_for(guard, wait, [&] { return m_closed || cancelled || m_latest != number; });
  }
  Answer answer;
  answer.latest = m_latest;
  for (const Kept& entry : m_entries) {
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
