#include "ports/port_records.h"

#include <new>
#include <utility>
#include <vector>

PortRecords& PortRecords::instance() noexcept {
  static PortRecords records;
  return records;
}

void PortRecords::Free::operator()(tagPort* port) const noexcept {
  delete port->cachedPrinters;
  delete port->lock;
  delete port;
}

tagPort* PortRecords::make() noexcept try {
  // Each of these keeps an address that stale handles still name, until a free one is found.
  std::vector<Owner> taken;
  for (;;) {
    Owner port(new (std::nothrow) tagPort());
    if (port == nullptr) return nullptr;
    port->lock = new CriticalSection;
    switch (add(*port)) {
      case Added::kYes:
        return port.release();
      case Added::kNoMemory:
        return nullptr;
      case Added::kAddressTaken:
        taken.push_back(std::move(port));
    }
  }
} catch (const std::bad_alloc&) {
  return nullptr;
}

PortRecords::Added PortRecords::add(const tagPort& port) noexcept try {
  const std::lock_guard guard(m_lock);
  return m_entries.try_emplace(&port).second ? Added::kYes : Added::kAddressTaken;
} catch (...) {
  return Added::kNoMemory;
}

PortRecords::Removed PortRecords::remove(tagPort& port) noexcept {
  Removed removed;
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(&port);
  if (entry == m_entries.end() || entry->second.deleted) return removed;
  entry->second.deleted = true;
  removed.connection = std::exchange(entry->second.connection, nullptr);
  if (entry->second.calls == 0) removed.record.reset(&port);
  forgetLocked(entry);
  return removed;
}

void PortRecords::forgetLocked(Entries::iterator entry) noexcept {
  if (entry->second.deleted && entry->second.handles == 0 && entry->second.calls == 0) m_entries.erase(entry);
}

void PortRecords::handleOpened(const tagPort& port) noexcept {
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(&port);
  if (entry != m_entries.end()) ++entry->second.handles;
}

void PortRecords::handleClosed(HANDLE handle) noexcept {
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(handle);
  if (entry == m_entries.end() || entry->second.handles == 0) return;
  --entry->second.handles;
  forgetLocked(entry);
}

tagPort* PortRecords::enter(HANDLE handle) noexcept {
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(handle);
  if (entry == m_entries.end() || entry->second.deleted) return nullptr;
  ++entry->second.calls;
  return static_cast<tagPort*>(handle);
}

PortRecords::Owner PortRecords::leave(tagPort& port) noexcept {
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(&port);
  if (--entry->second.calls != 0 || !entry->second.deleted) return nullptr;
  forgetLocked(entry);
  return Owner(&port);
}

bool PortRecords::setConnection(const tagPort& port, const CS_RCPtr<CS_Connection>& connection) noexcept {
  CS_RCPtr<CS_Connection> before;  // its last reference may go with it, and not under the lock
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(&port);
  if (entry == m_entries.end() || entry->second.deleted) return false;
  before = std::exchange(entry->second.connection, connection);
  return true;
}

bool PortRecords::isDeleted(const tagPort& port) const noexcept {
  const std::lock_guard guard(m_lock);
  const auto entry = m_entries.find(&port);
  return entry != m_entries.end() && entry->second.deleted;
}
