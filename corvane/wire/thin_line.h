#pragma once

#include "corvane/base/lock.h"
#include "corvane/net/patience.h"
#include "corvane/net/stream.h"
#include "corvane/wire/packing.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace corvane {

class Link;
struct FrameHeader;

// How much of one connection may be on its way to a peer that says what it has taken. More than the line holds only
// waits somewhere on it, in front of what is sent next: so the bound rises while what is sent arrives promptly and
// falls when it comes late by more than kTarget, whatever the rate of the line and the buffers on it. Used under the
// lock of its owner.
class SendWindow {
 public:
  using Clock = std::chrono::steady_clock;

  // Whether so many bytes may be sent; always when nothing is on its way.
  bool hasRoom(std::size_t bytes) const { return onItsWay() == 0 || onItsWay() + bytes <= m_size; }
  void sent(std::size_t bytes, Clock::time_point now);
  // The peer has taken so many bytes since the beginning, as a number of 32 bits that begins again; returns how many
  // are new, 0 for a number that cannot be.
  std::size_t taken(std::uint32_t count, Clock::time_point now);

  std::size_t size() const { return m_size; }
  std::uint64_t onItsWay() const { return m_sent - m_taken; }

  static constexpr std::size_t kFirst = 64 * 1024;
  static constexpr std::size_t kLeast = 16 * 1024;
  static constexpr std::size_t kMost = 4 * 1024 * 1024;
  // On a line that takes no time; for each millisecond that the line takes as much more, which is what one of
  // 4 Gbit/s holds. What is more than that only leaves the processor's cache before it is sent.
  static constexpr std::size_t kMostAtOnce = 512 * 1024;
  static constexpr std::chrono::milliseconds kTarget{60};
  // How long the shortest time on the way is believed; the line may become another one. Then little is sent for a
  // moment, so that the time is measured without what was waiting.
  static constexpr std::chrono::seconds kBelieved{60};

 private:
  struct Mark {
    std::uint64_t end;  // of what was sent until then
    Clock::time_point at;
  };
  // On a line that takes so long.
  static std::size_t mostOn(Clock::duration onTheWay);
  void adjust(std::size_t bytes, Clock::duration onTheWay, bool wasFull, Clock::time_point now);

  std::size_t m_size = kFirst;
  std::uint64_t m_sent = 0;
  std::uint64_t m_taken = 0;
  std::deque<Mark> m_marks;  // at most one for each millisecond on the way
  Clock::duration m_shortest = Clock::duration::max();
  Clock::duration m_shortestBefore = Clock::duration::max();
  Clock::time_point m_shortestSince{};
};

// The way to a peer that may be far away, which the jobs to it share: one after the other sends a piece, in the order
// in which they asked, so that a short job does not wait for a long one; no more is on its way than the line takes at
// once (SendWindow); and all together send at most at a rate that may be set. Any thread may call it.
class ThinLine {
 public:
  ThinLine(std::shared_ptr<Link> link, const Patience& patience);

  // Bytes of a second; the lowest of those that were set counts, and none below kLeastRate: a peer that asks for next
  // to nothing must not hold its jobs, and who waits for them, for ever.
  void limitRate(std::uint64_t bytesPerSecond);

  // Whether a piece of so many bytes would have to wait now.
  bool isBusy(std::size_t bytes) const;
  // How much may be sent at once of what does not become shorter: a share of what is on its way.
  std::size_t unpackedPiece() const;
  static std::size_t unpackedPieceOf(std::size_t window);
  // How many pieces wait, the one whose turn it is included.
  std::size_t waiting() const;
  // Waits for its turn and for room and sends complete frames of a job. Throws CS_Exception (3102) when the connection
  // has ended, which it also does when the peer takes nothing for longer than it may.
  void send(std::span<const unsigned char> frames);
  // What the peer says that it has taken; see SendWindow.
  void taken(std::uint32_t count);
  // The connection has ended: nobody waits any more.
  void end(const std::wstring& reason);

  static constexpr std::uint64_t kLeastRate = 8000;
  // How much a job sends at once; some twentieth of a second on a line of 2 Mbit/s.
  static constexpr std::size_t kPiece = 24 * 1024;
  // The same on a busy line for what does not become shorter: this, or more where the line is fast (unpackedPiece()).
  static constexpr std::size_t kUnpackedPiece = 8 * 1024;
  static constexpr std::size_t kPiecesOnTheWay = 8;

 private:
  void awaitRoom(std::unique_lock<Lock>& lock, std::size_t bytes);

  const std::shared_ptr<Link> m_link;
  mutable Lock m_lock;  // guards what follows
  Condition m_changed;
  SendWindow m_window;
  SendAllowance m_allowance;
  std::uint64_t m_bytesPerSecond = 0;  // 0: as fast as it goes
  SendWindow::Clock::time_point m_nextSend{};
  std::uint64_t m_turns = 0;  // that were asked for
  std::uint64_t m_turn = 0;   // whose it is
  bool m_ended = false;
  std::wstring m_reason;
};

// The frames of one job on their way over such a line: cut into pieces and, where the line has to be waited for,
// packed. A job's first pieces are always packed, because a short job is all that it will be asked for; later on a fast
// line gets them as they are, since packing would take longer than sending. Used by one thread.
class JobLane {
 public:
  // Without a packing nothing is packed.
  JobLane(std::shared_ptr<ThinLine> line, const Packing* packing);

  // Complete frames of one bridge. Throws as ThinLine::send() does.
  void send(std::span<const unsigned char> frames);

  static constexpr std::uint64_t kAlwaysPacked = 256 * 1024;
  // So many pieces go as they are after one that did not become shorter, and twice as many after each further one:
  // trying costs more than sending on a fast line.
  static constexpr int kPiecesAsTheyAre = 16;
  static constexpr int kMostAsTheyAre = 1024;

 private:
  void append(const FrameHeader& header, std::span<const unsigned char> payload);
  void sendPiece();
  bool isWorthPacking();
  std::size_t pieceSize() const;

  const std::shared_ptr<ThinLine> m_line;
  const std::unique_ptr<Packer> m_packer;  // may be null
  std::vector<unsigned char> m_piece;
  std::vector<unsigned char> m_packed;
  std::uint32_t m_bridge = 0;
  std::uint64_t m_sent = 0;
  int m_skip = 0;
  int m_skipNext = kPiecesAsTheyAre;
  bool m_beginsAnew = true;
};

}  // namespace corvane
