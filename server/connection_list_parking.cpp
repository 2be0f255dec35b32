// How a connection does without a thread while its peer says nothing.

#include "server/connection_list.h"

#include <exception>
#include <utility>

namespace aps {

bool ConnectionList::park(Position position) noexcept {
  try {
    const std::lock_guard<std::mutex> guard(m_lock);
    std::list<std::thread> left(1);
    Parked one;
    one.emplace(++m_parkings, position);
    Parked::node_type parked = one.extract(one.begin());
    const auto handle = position->connection->idleHandle();
    // Whoever is told of it waits for the lock.
    if (!handle || !m_readyWatch.watch(*handle, parked.key())) return false;
    m_parked.insert(std::move(parked));
    left.front().swap(position->thread);
    m_left.splice(m_left.end(), left);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool ConnectionList::parkAgain(Parked::node_type& parked) noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto handle = parked.mapped()->connection->idleHandle();
  if (!handle || !m_readyWatch.watch(*handle, parked.key())) return false;
  m_parked.insert(std::move(parked));
  return true;
}

void ConnectionList::ready(std::uint64_t number) noexcept {
  Parked::node_type parked;
  CS_RCPtr<CS_Connection> connection;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    parked = m_parked.extract(number);
    if (parked.empty()) return;  // it was woken meanwhile
    connection = parked.mapped()->connection;
  }
  if (!connection->isStillIdle() || !parkAgain(parked)) wake(std::move(parked));
}

void ConnectionList::wake(Parked::node_type parked) noexcept {
  const Position position = parked.mapped();
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    try {
      position->thread = std::thread([this, position] { run(position); });
      position->lacksThread = false;
      return;
    } catch (const std::exception&) {
      position->lacksThread = true;
      if (!m_closing) m_parked.insert(std::move(parked));
    }
    if (!m_closing) return;
  }
  run(position);  // it has ended, and so this takes no time
}

void ConnectionList::wakeDue() noexcept {
  Parked due;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (auto at = m_parked.begin(); at != m_parked.end();) {
      const auto next = std::next(at);
      if (at->second->lacksThread || at->second->connection->isOverdue()) due.insert(m_parked.extract(at));
      at = next;
    }
  }
  while (!due.empty())
    wake(due.extract(due.begin()));
}

}  // namespace aps
