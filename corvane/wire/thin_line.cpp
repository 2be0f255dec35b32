#include "corvane/wire/thin_line.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/link.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

namespace corvane {

void SendWindow::sent(std::size_t bytes, Clock::time_point now) {
  m_sent += bytes;
  if (!m_marks.empty() && now - m_marks.back().at < std::chrono::milliseconds(1)) {
    m_marks.back().end = m_sent;
  } else {
    m_marks.push_back({m_sent, now});
  }
}

std::size_t SendWindow::taken(std::uint32_t count, Clock::time_point now) {
  const auto bytes = static_cast<std::uint32_t>(count - static_cast<std::uint32_t>(m_taken));
  if (bytes == 0 || bytes > onItsWay()) return 0;
  // Neither with little on its way nor with what is left of a larger window does its arrival tell that more would fit.
  const bool wasFull = onItsWay() + ThinLine::kPiece > m_size && onItsWay() < m_size + ThinLine::kPiece;
  m_taken += bytes;
  std::optional<Clock::time_point> sentAt;
  for (; !m_marks.empty() && m_marks.front().end <= m_taken; m_marks.pop_front())
    sentAt = m_marks.front().at;
  if (sentAt) adjust(bytes, now - *sentAt, wasFull, now);
  return bytes;
}

std::size_t SendWindow::mostOn(Clock::duration onTheWay) {
  const double milliseconds = std::chrono::duration<double, std::milli>(onTheWay).count();
  const double holds = static_cast<double>(kMostAtOnce) * (1 + milliseconds);
  return holds < static_cast<double>(kMost) ? static_cast<std::size_t>(holds) : kMost;
}

void SendWindow::adjust(std::size_t bytes, Clock::duration onTheWay, bool wasFull, Clock::time_point now) {
  using Seconds = std::chrono::duration<double>;
  if (m_shortestSince == Clock::time_point()) m_shortestSince = now;
  if (now - m_shortestSince >= kBelieved) {
    m_shortestBefore = std::exchange(m_shortest, Clock::duration::max());
    m_shortestSince = now;
    m_size = kLeast;
    return;
  }
  m_shortest = std::min(m_shortest, onTheWay);
  const Clock::duration shortest = std::min(m_shortest, m_shortestBefore);
  const Clock::duration late = onTheWay - shortest;
  const double share = Seconds(late) / Seconds(kTarget);  // 0: at once, 1: as late as it may be
  double size = static_cast<double>(m_size);
  if (share > 1) {
    size -= static_cast<double>(bytes) * std::min(share - 1, 0.5);
  } else if (wasFull) {
    size += static_cast<double>(bytes) * (1 - share);
  }
  m_size = std::clamp(static_cast<std::size_t>(std::max(size, 0.0)), kLeast, mostOn(shortest));
}

ThinLine::ThinLine(std::shared_ptr<Link> link, const Patience& patience)
    : m_link(std::move(link)), m_allowance(patience.send) {}

void ThinLine::limitRate(std::uint64_t bytesPerSecond) {
  const std::lock_guard guard(m_lock);
  if (bytesPerSecond == 0) return;
  const std::uint64_t rate = std::max(bytesPerSecond, kLeastRate);
  m_bytesPerSecond = m_bytesPerSecond == 0 ? rate : std::min(m_bytesPerSecond, rate);
}

bool ThinLine::isBusy(std::size_t bytes) const {
  const std::lock_guard guard(m_lock);
  return m_turns != m_turn || !m_window.hasRoom(bytes) || SendWindow::Clock::now() < m_nextSend;
}

std::size_t ThinLine::unpackedPiece() const {
  const std::lock_guard guard(m_lock);
  return unpackedPieceOf(m_window.size());
}

std::size_t ThinLine::unpackedPieceOf(std::size_t window) {
  return std::clamp(window / kPiecesOnTheWay, kUnpackedPiece, kPiece);
}

std::size_t ThinLine::waiting() const {
  const std::lock_guard guard(m_lock);
  return static_cast<std::size_t>(m_turns - m_turn);
}

void ThinLine::awaitRoom(std::unique_lock<Lock>& lock, std::size_t bytes) {
  for (;;) {
    if (m_ended) throw CS_Exception(kConnectionLost, L"%s", m_reason.c_str());
    const auto now = SendWindow::Clock::now();
    if (now < m_nextSend) {
      m_changed.wait_until(lock, m_nextSend);
      continue;
    }
    if (m_window.hasRoom(bytes)) return;
    if (m_allowance.left().count() == 0) m_allowance.refuse();
    m_changed.wait_for(lock, m_allowance.left());
    m_allowance.waited(SendWindow::Clock::now() - now);
  }
}

void ThinLine::send(std::span<const unsigned char> frames) {
  std::unique_lock lock(m_lock);
  const std::uint64_t mine = m_turns++;
  m_changed.wait(lock, [&] { return m_turn == mine; });
  const auto endTurn = [&] {
    if (!lock.owns_lock()) lock.lock();
    ++m_turn;
    m_changed.notify_all();
  };
  try {
    awaitRoom(lock, frames.size());
    const auto now = SendWindow::Clock::now();
    m_window.sent(frames.size(), now);
    if (m_bytesPerSecond != 0) {
      m_nextSend = now + std::chrono::microseconds(frames.size() * 1000000 / m_bytesPerSecond);
    }
    lock.unlock();
    m_link->sendFrames(frames);
  } catch (const CS_Exception& exception) {
    if (lock.owns_lock()) lock.unlock();  // its end calls end()
    m_link->end(exception.detail());
    endTurn();
    throw;
  } catch (...) {
    endTurn();
    throw;
  }
  endTurn();
}

void ThinLine::taken(std::uint32_t count) {
  const std::lock_guard guard(m_lock);
  const std::size_t bytes = m_window.taken(count, SendWindow::Clock::now());
  if (bytes == 0) return;
  m_allowance.took(bytes);
  m_changed.notify_all();
}

void ThinLine::end(const std::wstring& reason) {
  const std::lock_guard guard(m_lock);
  if (m_ended) return;
  m_ended = true;
  try {
    m_reason = reason;
  } catch (const std::bad_alloc&) {
    // The end is what counts.
  }
  m_changed.notify_all();
}

JobLane::JobLane(std::shared_ptr<ThinLine> line, const Packing* packing)
    : m_line(std::move(line)), m_packer(packing == nullptr ? nullptr : packing->makePacker()) {}

void JobLane::send(std::span<const unsigned char> frames) {
  m_piece.clear();  // a send that failed may have left some
  while (!frames.empty()) {
    const FrameHeader header = decodeHeader(frames.first<kFrameHeaderSize>());
    m_bridge = header.bridge;
    append(header, frames.subspan(kFrameHeaderSize, header.length));
    frames = frames.subspan(kFrameHeaderSize + header.length);
  }
  if (!m_piece.empty()) sendPiece();
}

// The payload of a request may be cut anywhere; what else a job sends is short.
void JobLane::append(const FrameHeader& header, std::span<const unsigned char> payload) {
  FrameHeader part = header;
  do {
    const bool canBeCut = header.kind == FrameKind::kRequest;
    const std::size_t needed = kFrameHeaderSize + (canBeCut ? 1 : payload.size());
    const std::size_t size = pieceSize();
    if (!m_piece.empty() && m_piece.size() + needed > size) sendPiece();
    const std::size_t room = size - std::min(m_piece.size() + kFrameHeaderSize, size - 1);
    const auto now = payload.first(canBeCut ? std::min(room, payload.size()) : payload.size());
    payload = payload.subspan(now.size());
    part.length = static_cast<std::uint32_t>(now.size());
    part.flags = static_cast<std::uint8_t>(header.flags | (payload.empty() ? 0 : kFlagMore));
    const EncodedHeader encoded = encodeHeader(part);
    m_piece.insert(m_piece.end(), encoded.begin(), encoded.end());
    m_piece.insert(m_piece.end(), now.begin(), now.end());
  } while (!payload.empty());
}

std::size_t JobLane::pieceSize() const {
  const bool isPacked = m_packer != nullptr && m_skip == 0;
  return isPacked || !m_line->isBusy(ThinLine::kPiece) ? ThinLine::kPiece : m_line->unpackedPiece();
}

bool JobLane::isWorthPacking() {
  if (m_packer == nullptr) return false;
  if (m_skip > 0) return --m_skip == 0;
  return m_sent < kAlwaysPacked || m_line->isBusy(m_piece.size());
}

void JobLane::sendPiece() {
  bool isPacked = false;
  if (isWorthPacking() && m_piece.size() > kFrameHeaderSize) {
    isPacked = m_packer->pack(m_piece, m_beginsAnew, m_packed) && m_packed.size() + kFrameHeaderSize < m_piece.size();
    if (!isPacked) m_skip = m_skipNext;
    m_skipNext = isPacked ? kPiecesAsTheyAre : std::min(2 * m_skipNext, kMostAsTheyAre);
  }
  m_sent += m_piece.size();
  if (isPacked) {
    FrameHeader header;
    header.kind = FrameKind::kPacked;
    header.length = static_cast<std::uint32_t>(m_packed.size());
    header.flags = m_beginsAnew ? kFlagBeginsAnew : std::uint8_t{0};
    header.bridge = m_bridge;
    const EncodedHeader encoded = encodeHeader(header);
    m_packed.insert(m_packed.begin(), encoded.begin(), encoded.end());
  }
  m_beginsAnew = !isPacked;
  m_line->send(isPacked ? m_packed : m_piece);
  m_piece.clear();
}

}  // namespace corvane
