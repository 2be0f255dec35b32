#include "server/session_table.h"

#include "server/printer_name.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>

namespace aps {
namespace {

// How long a waiting caller goes on without asking whether it has given up.
constexpr std::chrono::milliseconds kLookEvery{100};

std::size_t charactersOf(const Printer& printer) {
  std::size_t all = 0;
  for (const auto& text : printer.texts)
    all += text ? text->size() : 0;
  return all;
}

}  // namespace

std::wstring SessionTable::refusalLocked(int session, const std::vector<Printer>& printers,
                                         const CS_Connection* client) const {
  if (session < 1) return fmt::format(L"session {} does not exist; sessions are numbered from 1", session);
  if (printers.empty()) return fmt::format(L"session {} registers no printer", session);
  if (printers.size() > m_limits.printers) {
    return fmt::format(L"session {} registers {} printers, the limit is {}", session, printers.size(),
                       m_limits.printers);
  }
  const auto known = m_sessions.find(session);
  if (known != m_sessions.end() && known->second.client && known->second.client.get() != client) {
    return fmt::format(L"session {} has a print client already; stop that one first", session);
  }
  if (std::wstring refusal = printersRefusal(printers); !refusal.empty()) return refusal;
  std::size_t characters = 0;
  for (const Printer& printer : printers)
    characters += charactersOf(printer);
  if (characters > m_limits.texts()) {
    return fmt::format(
        L"session {} describes its printers with {} characters, the limit is {}; shorten the descriptions, or start "
        L"aps with a higher --max-printers",
        session, characters, m_limits.texts());
  }
  return L"";
}

bool SessionTable::makeRoomLocked(std::optional<int>& forgotten) {
  if (m_sessions.size() < m_limits.sessions) return true;
  auto oldest = m_sessions.end();
  for (auto at = m_sessions.begin(); at != m_sessions.end(); ++at) {
    const bool older = oldest == m_sessions.end() || at->second.leftAt < oldest->second.leftAt;
    if (!at->second.client && older) oldest = at;
  }
  if (oldest == m_sessions.end()) return false;
  const int session = oldest->first;
  std::erase_if(m_byName, [session](const auto& item) { return item.second.first == session; });
  m_sessions.erase(oldest);
  forgotten = session;
  return true;
}

SessionTable::Admission SessionTable::enter(int session, std::vector<Printer> printers,
                                            const CS_ClassVersionMap& versions, const CS_RCPtr<CS_Connection>& client) {
  std::unique_lock<std::mutex> guard(m_lock);
  Admission admission;
  admission.refusal = refusalLocked(session, printers, client.get());
  if (!admission.accepted()) return admission;
  if (m_sessions.count(session) == 0 && !makeRoomLocked(admission.forgotten)) {
    admission.refusal =
        fmt::format(L"this server has {} sessions with a print client, which is its limit", m_limits.sessions);
    return admission;
  }
  std::erase_if(m_byName, [session](const auto& item) { return item.second.first == session; });
  for (std::size_t i = 0; i < printers.size(); ++i) {
    admission.localNames.push_back(localPrinterName(printers[i].name(), session));
    m_byName[foldedName(admission.localNames.back())] = {session, i};
  }
  Entry& entry = m_sessions[session];
  entry.printers = std::move(printers);
  if (m_latestVersions == nullptr || *m_latestVersions != versions) {
    m_latestVersions = std::make_shared<const CS_ClassVersionMap>(versions);
  }
  entry.versions = m_latestVersions;
  if (entry.client.get() != client.get()) entry.since = std::chrono::system_clock::now();
  entry.client = client;
  entry.key = client ? client->peerKeyMark() : corvane::Bytes32{};
  guard.unlock();
  changed();
  return admission;
}

bool SessionTable::leave(int session, const CS_Connection* client) {
  CS_RCPtr<CS_Connection> gone;  // given back after the lock
  std::unique_lock<std::mutex> guard(m_lock);
  const auto known = m_sessions.find(session);
  if (known == m_sessions.end() || !known->second.client || known->second.client.get() != client) return false;
  gone = std::move(known->second.client);
  known->second.leftAt = ++m_departures;
  known->second.left = Clock::now();
  known->second.since = std::chrono::system_clock::now();
  guard.unlock();
  changed();
  return true;
}

void SessionTable::remember(std::vector<Status> sessions) {
  const std::lock_guard<std::mutex> guard(m_lock);
  for (Status& session : sessions) {
    std::optional<int> forgotten;
    if (m_sessions.count(session.number) != 0 || !makeRoomLocked(forgotten)) continue;
    Entry& entry = m_sessions[session.number];
    entry.printers = std::move(session.printers);
    entry.leftAt = ++m_departures;
    entry.left = m_began;
    entry.since = session.since;
    entry.key = session.key;
    for (std::size_t i = 0; i < entry.printers.size(); ++i) {
      m_byName[foldedName(localPrinterName(entry.printers[i].name(), session.number))] = {session.number, i};
    }
  }
}

std::vector<SessionTable::Status> SessionTable::known() const {
  std::vector<std::pair<std::uint64_t, Status>> all;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const auto& [number, entry] : m_sessions) {
      const bool connected = static_cast<bool>(entry.client);
      all.push_back(
          {connected ? UINT64_MAX : entry.leftAt, {number, connected, entry.since, entry.printers, entry.key}});
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<Status> sessions;
  for (auto& [order, session] : all)
    sessions.push_back(std::move(session));
  return sessions;
}

void SessionTable::changed() const {
  m_someoneCame.notify_all();
  if (m_onChange) m_onChange();
}

void SessionTable::wake() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_someoneCame.notify_all();
}

SessionTable::Clock::time_point SessionTable::patienceLocked(const std::optional<Found>& found) const {
  Clock::time_point from = m_began;
  if (found) from = std::max(from, m_sessions.at(found->session).left);
  return from + m_limits.clientWait;
}

template <class IsThere, class Until>
void SessionTable::waitLocked(std::unique_lock<std::mutex>& lock, const IsThere& isThere, const Until& until,
                              const HasGivenUp& hasGivenUp) const {
  while (!isThere() && Clock::now() < until()) {
    lock.unlock();
    const bool givenUp = hasGivenUp();
    lock.lock();
    if (givenUp || isThere()) return;
    m_someoneCame.wait_until(lock, std::min(until(), Clock::now() + kLookEvery));
  }
}

std::optional<SessionTable::Found> SessionTable::find(const std::wstring& localName) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return findLocked(localName);
}

std::optional<SessionTable::Found> SessionTable::awaitClient(const std::wstring& localName,
                                                             const HasGivenUp& hasGivenUp) const {
  std::unique_lock<std::mutex> lock(m_lock);
  std::optional<Found> found;
  const auto isThere = [&] { return (found = findLocked(localName)) && found->client; };
  waitLocked(
      lock, isThere, [&] { return patienceLocked(found); }, hasGivenUp);
  return findLocked(localName);
}

bool SessionTable::isExpected(const std::wstring& localName) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(localName);
  return !(found && found->client) && Clock::now() < patienceLocked(found);
}

std::optional<SessionTable::Found> SessionTable::findLocked(const std::wstring& localName) const {
  const auto named = m_byName.find(foldedName(localName));
  if (named == m_byName.end()) return std::nullopt;
  const auto [session, index] = named->second;
  const Entry& entry = m_sessions.at(session);
  return Found{entry.printers[index], session, entry.client, entry.versions, entry.key};
}

std::vector<std::wstring> SessionTable::localNames(int session) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return localNamesLocked(session);
}

std::vector<std::wstring> SessionTable::awaitLocalNames(int session, const HasGivenUp& hasGivenUp) const {
  std::unique_lock<std::mutex> lock(m_lock);
  waitLocked(
      lock, [&] { return m_sessions.count(session) != 0; }, [&] { return patienceLocked(std::nullopt); }, hasGivenUp);
  return localNamesLocked(session);
}

std::vector<std::wstring> SessionTable::localNamesLocked(int session) const {
  std::vector<std::wstring> names;
  const auto known = m_sessions.find(session);
  if (known == m_sessions.end()) return names;
  for (const Printer& printer : known->second.printers)
    names.push_back(localPrinterName(printer.name(), session));
  return names;
}

CS_RCPtr<CS_Connection> SessionTable::clientOf(int session) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto known = m_sessions.find(session);
  return known == m_sessions.end() ? nullptr : known->second.client;
}

bool SessionTable::isClient(const CS_Connection* connection) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return std::any_of(m_sessions.begin(), m_sessions.end(),
                     [connection](const auto& session) { return session.second.client.get() == connection; });
}

std::vector<SessionTable::Status> SessionTable::status() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::vector<Status> all;
  for (const auto& [number, entry] : m_sessions)
    all.push_back({number, static_cast<bool>(entry.client), entry.since, entry.printers, entry.key});
  return all;
}

SessionTable::Page SessionTable::page(Place from, std::size_t characters) const {
  constexpr std::size_t kEach = 64;  // a session and a printer have more than their texts
  const std::lock_guard<std::mutex> guard(m_lock);
  Page page;
  std::size_t used = 0;
  for (auto at = m_sessions.lower_bound(from.session); at != m_sessions.end(); ++at) {
    const auto& [number, entry] = *at;
    page.sessions.push_back({number, static_cast<bool>(entry.client), entry.since, {}, entry.key});
    used += kEach;
    for (std::size_t i = number == from.session ? from.printer : 0; i < entry.printers.size(); ++i) {
      // Its name is told twice, here and as the client has it.
      const std::size_t cost = kEach + charactersOf(entry.printers[i]) + kMaxPrinterName;
      if (used + cost > characters && used > kEach) {
        if (page.sessions.back().printers.empty()) page.sessions.pop_back();
        page.next = Place{number, i};
        return page;
      }
      page.sessions.back().printers.push_back(entry.printers[i]);
      used += cost;
    }
  }
  return page;
}

}  // namespace aps
