#include "corvane/wire/heartbeat.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

#include <new>
#include <system_error>

namespace corvane {

Heartbeat::Heartbeat(const Patience& patience) : m_patience(patience) {}

Heartbeat::~Heartbeat() {
  {
    const std::lock_guard guard(m_lock);
    m_stopping = true;
  }
  m_changed.notify_all();
  if (m_thread.joinable()) m_thread.join();
}

void Heartbeat::watch(const std::shared_ptr<Link>& link) {
  link->expectBeats(m_patience.silence);
  const std::lock_guard guard(m_lock);
  m_links.push_back(link);
  if (m_thread.joinable()) return;
  try {
    m_thread = std::thread([this] { run(); });
  } catch (const std::system_error&) {
    throw CS_Exception(kConnectFailed, L"the system has no thread for signs of life");
  }
}

void Heartbeat::run() noexcept {
  std::vector<std::shared_ptr<Link>> alive;
  std::unique_lock lock(m_lock);
  while (!m_changed.wait_for(lock, m_patience.beat, [this] { return m_stopping; })) {
    try {
      alive.reserve(m_links.size());
    } catch (const std::bad_alloc&) {
      continue;  // Patience has room for a beat that is missing
    }
    std::erase_if(m_links, [&](const std::weak_ptr<Link>& each) {
      std::shared_ptr<Link> link = each.lock();
      if (link == nullptr || link->hasEnded()) return true;
      alive.push_back(std::move(link));
      return false;
    });
    lock.unlock();
    for (const auto& link : alive)
      link->beat();
    alive.clear();
    lock.lock();
  }
}

}  // namespace corvane
