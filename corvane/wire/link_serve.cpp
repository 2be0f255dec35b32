// The serving half of Link: one thread that reads it for as long as there is something to read, and none while there is
// not.

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

#include <algorithm>
#include <utility>

namespace corvane {

bool Link::isOverdue() const {
  return m_silence && std::chrono::steady_clock::now() - lastHeard() >= *m_silence;
}

// False when nothing came until the stream returned because of that. Only the wait for bytes counts as silence: while
// this thread handles a frame, what the peer says waits in the system.
bool Link::readForService() {
  const bool endsWait = m_silence && !m_returnsWhenIdle;
  if (readOnce(endsWait ? std::optional(std::chrono::steady_clock::now() + *m_silence) : std::nullopt)) return true;
  if (!endsWait && !isOverdue()) return false;
  throw CS_Exception(kConnectionLost, L"nothing was heard from the other side for %s",
                     durationText(*m_silence).c_str());
}

// Takes the lead for good.
void Link::takeLead() {
  std::unique_lock lock(m_stateLock);
  if (std::exchange(m_isParked, false)) {
    return leave();
  }
  m_leadIsFree.wait(lock, [&] { return !m_hasLeader || hasEnded(); });
  m_hasLeader = true;
}

bool Link::park() {
  const std::lock_guard guard(m_stateLock);
  if (hasEnded() || !m_stream->idleHandle()) return false;
  m_reader.letGo();
  ++m_uses;  // the end shuts the stream down, which is seen, and does not close it
  m_isParked = true;
  return true;
}

std::wstring Link::serve() {
  return *serveUntilIdle(std::chrono::milliseconds(0));
}

std::optional<std::wstring> Link::serveUntilIdle(std::chrono::milliseconds idle) {
  takeLead();
  try {
    if (idle.count() > 0 && !m_returnsWhenIdle) {
      const Use use(*this);
      // So that it is noticed in time when the peer says nothing any more.
      m_returnsWhenIdle = m_stream->returnWhenIdle(m_silence ? std::min(idle, *m_silence / 4) : idle);
    }
    while (!hasEnded()) {
      if (!readForService() && park()) return std::nullopt;
    }
  } catch (const CS_Exception& exception) {
    end(exception.detail());
  } catch (const std::exception&) {
    end(L"not enough memory");
  }
  const std::lock_guard guard(m_stateLock);
  m_hasLeader = false;
  return m_reason;
}

// They leave nothing to do behind them, and the end of a batch may send, and wait for that.
void Link::takeBeats() {
  FrameHandler* const handler = m_handler;
  while (auto beat = m_reader.next(FrameKind::kBeat)) {
    if (handler != nullptr) handler->onFrame(*beat);
  }
}

bool Link::isStillIdle() {
  if (hasEnded()) return false;
  try {
    switch (fill(std::chrono::steady_clock::now())) {
      case FrameReader::Fill::kTimedOut:
        break;
      case FrameReader::Fill::kClosed:
        return false;  // the stream says so again
      case FrameReader::Fill::kData:
        heard();
    }
    takeBeats();
    m_reader.letGo();
    return m_reader.isBetweenFrames() && m_stream->idleHandle();
  } catch (const CS_Exception& exception) {
    end(exception.detail());
  } catch (const std::exception&) {
    end(L"not enough memory");
  }
  return false;
}

}  // namespace corvane
