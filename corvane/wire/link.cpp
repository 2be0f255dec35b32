#include "corvane/wire/link.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/value_reader.h"

#include <algorithm>

namespace corvane {

Link::Link(std::unique_ptr<Stream> stream, const Patience& patience)
    : m_stream(std::move(stream)), m_peerName(m_stream->peerName()) {
  m_stream->setPatience(patience);
}

Link::Link(Socket socket, const Patience& patience) : Link(std::make_unique<Socket>(std::move(socket)), patience) {}

void Link::open(Deadline deadline) {
  const Use use(*this);
  m_stream->open(deadline);
}

Link::Use::Use(Link& link) : m_link(link) {
  if ((link.m_uses.fetch_add(1) & kEnded) == 0) return;
  link.leave();
  link.throwIfEnded();
}

Link::Use::~Use() {
  m_link.leave();
}

void Link::leave() noexcept {
  // A use that finds the link ended can be the last one once more.
  if (--m_uses == kEnded && !m_isClosed.exchange(true)) m_stream->close();
}

FrameReader::Fill Link::fill(std::optional<Deadline> deadline) {
  const Use use(*this);
  return m_reader.fill(*m_stream, deadline);
}

bool Link::peerHasClosed() noexcept {
  try {
    const Use use(*this);
    return m_stream->peerHasClosed();
  } catch (const CS_Exception&) {
    return true;
  }
}

void Link::setHandler(FrameHandler* handler) {
  m_handler = handler;
}

bool Link::hasEnded() const {
  return (m_uses & kEnded) != 0;
}

std::wstring Link::reason() const {
  const std::lock_guard guard(m_stateLock);
  return m_reason;
}

void Link::end(const wchar_t* reason) {
  FrameHandler* handler = nullptr;
  {
    const std::lock_guard guard(m_stateLock);
    if (hasEnded()) return;
    m_uses += kEnded + 1;  // a use of its own: until it is shut down nobody closes it
    try {
      m_reason = reason;
    } catch (const std::bad_alloc&) {
      // The end is what counts: a waiting thread must not wait for memory as well.
    }
    handler = m_handler.exchange(nullptr);
    callAll();
    // Does not block. Where no other thread is in a call with it, closing it tells the other side as well.
    if (m_uses != kEnded + 1) m_stream->shutdown();
    leave();
  }
  if (handler != nullptr) handler->onLinkEnd(m_reason);  // not changed any more
}

void Link::endBridge(std::uint32_t bridge, const std::wstring& reason) {
  const std::lock_guard guard(m_stateLock);
  for (const auto& [correlation, pending] : m_pending) {
    if (pending->m_bridge != bridge || pending->m_done) continue;
    pending->m_done = pending->m_failed = true;
    pending->m_failure = kConnectionLost;
    pending->m_reason = reason;
    if (pending->m_seat != nullptr) pending->m_seat->called.notify_one();
  }
}

// Reading by turns

bool Link::readOnce(std::optional<Deadline> deadline) {
  auto frame = m_reader.next();
  if (!frame) {
    switch (fill(deadline)) {
      case FrameReader::Fill::kTimedOut:
        return false;
      case FrameReader::Fill::kClosed:
        end(m_reader.isBetweenFrames() ? kClosedInOrder
                                       : L"the other side closed the connection in the middle of a frame");
        return true;
      case FrameReader::Fill::kData:
        heard();
        frame = m_reader.next();
    }
  }
  FrameHandler* const handler = m_handler;
  if (handler == nullptr) return true;
  try {
    for (; frame; frame = m_reader.next())
      handler->onFrame(*frame);
    handler->onBatchEnd();
  } catch (...) {
    handler->onBatchAbandoned();
    throw;
  }
  return true;
}

bool Link::sleepFor(Pending& pending, std::unique_lock<Lock>& lock, Deadline deadline) {
  if (m_freeSeats == nullptr) m_freeSeats = std::make_unique<Seat>();
  std::unique_ptr<Seat> seat = std::move(m_freeSeats);
  m_freeSeats = std::move(seat->nextFree);
  pending.m_seat = seat.get();
  const bool isInTime = seat->called.wait_until(lock, deadline) == std::cv_status::no_timeout;
  pending.m_seat = nullptr;
  seat->nextFree = std::move(m_freeSeats);
  m_freeSeats = std::move(seat);
  return isInTime;
}

void Link::callLeader() {
  if (m_hasLeader || hasEnded()) return;
  m_leadIsFree.notify_one();
  for (const auto& [correlation, pending] : m_pending) {
    if (pending->m_seat == nullptr || pending->m_done) continue;
    pending->m_seat->called.notify_one();
    return;
  }
}

void Link::callAll() {
  m_leadIsFree.notify_all();
  for (const auto& [correlation, pending] : m_pending) {
    if (pending->m_seat != nullptr) pending->m_seat->called.notify_one();
  }
}

bool Link::lead(std::unique_lock<Lock>& lock, const bool& done, Deadline deadline) {
  m_hasLeader = true;
  bool isInTime = true;
  while (!done && !hasEnded() && isInTime) {
    lock.unlock();
    try {
      isInTime = readOnce(deadline);
    } catch (const CS_Exception& exception) {
      end(exception.detail());
    } catch (const std::exception&) {
      end(L"not enough memory");
    }
    lock.lock();
  }
  m_hasLeader = false;
  return isInTime;
}

Link::Pending::Pending(Link& link, std::uint32_t bridge) : m_link(link), m_bridge(bridge) {
  const std::lock_guard guard(link.m_stateLock);
  m_correlation = link.m_correlations.next(link.m_pending);
  if (link.m_sparePending.empty()) {
    link.m_pending.emplace(m_correlation, this);
  } else {
    link.m_sparePending.key() = m_correlation;
    link.m_sparePending.mapped() = this;
    link.m_pending.insert(std::move(link.m_sparePending));
  }
}

Link::Pending::~Pending() {
  const std::lock_guard guard(m_link.m_stateLock);
  m_link.m_sparePending = m_link.m_pending.extract(m_correlation);
}

std::vector<unsigned char> Link::Pending::wait(Deadline deadline) {
  std::unique_lock lock(m_link.m_stateLock);
  bool isInTime = true;
  while (!m_done && !m_link.hasEnded() && isInTime) {
    isInTime = m_link.m_hasLeader ? m_link.sleepFor(*this, lock, deadline) : m_link.lead(lock, m_done, deadline);
  }
  m_link.callLeader();
  if (!m_done && m_link.hasEnded()) throw CS_Exception(kConnectionLost, L"%s", m_link.m_reason.c_str());
  if (!m_done) throw CS_Exception(kReplyTimedOut, nullptr);
  if (m_failed) throw CS_Exception(m_failure, L"%s", m_reason.c_str());
  return std::move(m_bytes);
}

void Link::complete(const Frame& frame) {
  std::unique_lock guard(m_stateLock);
  const auto found = m_pending.find(frame.header.correlation);
  if (found == m_pending.end()) return;
  Pending& pending = *found->second;
  if (pending.m_done || pending.m_bridge != frame.header.bridge) return;
  pending.m_bytes.insert(pending.m_bytes.end(), frame.payload().begin(), frame.payload().end());
  if (pending.m_bytes.size() > kMaxCollectedReply) {
    throw CS_Exception(kLimitExceeded, L"a reply of more than %u bytes", static_cast<unsigned>(kMaxCollectedReply));
  }
  if (frame.header.hasMore()) return;
  pending.m_done = true;
  if (frame.header.kind == FrameKind::kFailure) {
    pending.m_failed = true;
    pending.m_failure = kRequestRefused;
    pending.m_reason = readReason(pending.m_bytes);
  }
  Seat* const seat = pending.m_seat;
  guard.unlock();
  // Behind the lock, for which the woken thread would have to wait; the seat is the link's.
  if (seat != nullptr) seat->called.notify_one();
}

void Link::lookForNews() {
  {
    const std::lock_guard guard(m_stateLock);
    if (m_hasLeader || hasEnded()) return;
    m_hasLeader = true;
  }
  try {
    // The end stands behind the peer's last words. A peer that never stops sending does not keep this thread.
    constexpr int kReceives = 16;
    for (int i = 0; i < kReceives && !hasEnded() && readOnce(std::chrono::steady_clock::now()); ++i) {
    }
  } catch (const CS_Exception& exception) {
    end(exception.detail());
  } catch (const std::exception&) {
    end(L"not enough memory");
  }
  const std::lock_guard guard(m_stateLock);
  m_hasLeader = false;
  callLeader();
}

}  // namespace corvane
