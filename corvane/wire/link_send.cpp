// The sending half of Link: frames leave in one gathered send.

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

#include <algorithm>
#include <array>
#include <new>

namespace corvane {
namespace {

// Cuts the pieces of a request into frames. Headers and piece lists for up to kFrames frames are kept in place, so that
// a write of the usual sizes allocates nothing.
class FrameBatch {
 public:
  static constexpr std::size_t kFrames = 16;

  FrameBatch(const FrameHeader& header, const ValueWriter& values) : m_header(header), m_left(values.size()) {
    values.forEachPiece([&](ValueWriter::Piece piece) { m_source[m_sources++] = piece; });
  }

  bool done() const { return m_done; }

  // The pieces of the next frames, behind the given first piece.
  std::span<const Stream::Piece> next(Stream::Piece first) {
    std::size_t used = 0;
    if (!first.empty()) m_pieces[used++] = first;
    for (std::size_t frame = 0; frame < kFrames && !m_done; ++frame) {
      const std::size_t length = std::min(m_left, kMaxFramePayload);
      m_left -= length;
      m_done = m_left == 0;
      m_header.length = static_cast<std::uint32_t>(length);
      m_header.flags = static_cast<std::uint8_t>((m_header.flags & ~kFlagMore) | (m_done ? 0 : kFlagMore));
      m_headers[frame] = encodeHeader(m_header);
      m_pieces[used++] = m_headers[frame];
      for (std::size_t room = length; room > 0;) {
        ValueWriter::Piece& source = m_source[m_at];
        const std::size_t now = std::min(room, source.size());
        m_pieces[used++] = source.first(now);
        source = source.subspan(now);
        room -= now;
        if (source.empty()) ++m_at;
      }
    }
    return std::span(m_pieces).first(used);
  }

 private:
  static constexpr std::size_t kSources = 2 * ValueWriter::kMaxReferences + 1;

  FrameHeader m_header;
  std::size_t m_left;
  bool m_done = false;
  std::array<ValueWriter::Piece, kSources> m_source;
  std::size_t m_sources = 0;
  std::size_t m_at = 0;
  std::array<EncodedHeader, kFrames> m_headers;
  std::array<Stream::Piece, 1 + 2 * kFrames + kSources> m_pieces;
};

// All or nothing: half a frame would end the connection at the other side.
void append(std::vector<unsigned char>& frames, FrameHeader header, const ValueWriter& values) {
  header.length = static_cast<std::uint32_t>(values.size());
  const EncodedHeader encoded = encodeHeader(header);
  const std::size_t size = frames.size() + encoded.size() + values.size();
  if (size > frames.capacity()) frames.reserve(2 * size);
  frames.insert(frames.end(), encoded.begin(), encoded.end());
  values.forEachPiece([&](ValueWriter::Piece piece) { frames.insert(frames.end(), piece.begin(), piece.end()); });
}

}  // namespace

void Link::throwIfEnded() {
  if (!hasEnded()) return;
  const std::lock_guard guard(m_stateLock);  // the end writes its reason under it
  throw CS_Exception(kConnectionLost, L"%s", m_reason.c_str());
}

// The first reason is the true one: a send may fail only because the link was ended meanwhile.
void Link::endAndThrow(const wchar_t* reasonOfThisFailure) {
  end(reasonOfThisFailure);
  throwIfEnded();
  __builtin_unreachable();
}

// With the send lock held.
void Link::sendPieces(std::span<const Stream::Piece> pieces) {
  m_stream->send(pieces);
  m_announcements.clear();
  m_hasAnnouncements = false;
  for (const auto& piece : pieces)
    m_sentSinceLook += piece.size();
}

void Link::announce(const FrameHeader& header, const ValueWriter& values) {
  throwIfEnded();
  const std::lock_guard guard(m_sendLock);
  append(m_announcements, header, values);
  m_hasAnnouncements = true;
}

template <class Send>
void Link::withSendLock(Send&& send) {
  const Use use(*this);
  try {
    const std::lock_guard guard(m_sendLock);
    send();
  } catch (const CS_Exception& exception) {
    endAndThrow(exception.detail());
  } catch (const std::exception&) {
    // Part of a frame may have left.
    endAndThrow(L"not enough memory");
  }
}

void Link::send(FrameHeader header, const ValueWriter& values) {
  bool look = false;
  withSendLock([&] {
    FrameBatch batch(header, values);
    while (!batch.done())
      sendPieces(batch.next(m_announcements));
    look = m_sentSinceLook >= kLookEvery;
    if (look) m_sentSinceLook = 0;
  });
  if (look) lookForNews();
}

void Link::sendAwaited(const FrameHeader& header, const ValueWriter& values) {
  if (values.size() > kGathered) return send(header, values);
  if (leaveToSender(header, values)) return;
  withSendLock([&] {
    FrameBatch batch(header, values);
    m_takesMore = true;
    sendPieces(batch.next(m_announcements));
    // This thread wants its own reply as well: it does so for a while, then no more is left to it.
    constexpr int kTimes = 8;
    for (int i = 1; takeOver(i < kTimes); ++i) {
      const std::array<Stream::Piece, 1> pieces{m_takenOver};
      sendPieces(pieces);
    }
  });
}

// False when nobody would send it, enough was left, or there is no memory for it.
bool Link::leaveToSender(const FrameHeader& header, const ValueWriter& values) try {
  if (!m_takesMore) return false;
  const std::lock_guard guard(m_leftLock);
  if (!m_takesMore || m_left.size() > kGathered) return false;
  append(m_left, header, values);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

// With the send lock held: takes over what was left to this thread, and whether more may be left. False when there was
// nothing, and then nothing may be left either.
bool Link::takeOver(bool more) {
  m_takenOver.clear();
  const std::lock_guard guard(m_leftLock);
  m_takenOver.swap(m_left);
  m_takesMore = more && !m_takenOver.empty();
  return !m_takenOver.empty();
}

void Link::sendBeatLocked() {
  if (!m_stream->hasRoom()) return;
  FrameHeader header;
  header.kind = FrameKind::kBeat;
  header.correlation = m_taken;
  const EncodedHeader encoded = encodeHeader(header);
  const std::array<Stream::Piece, 2> pieces{Stream::Piece(m_announcements), Stream::Piece(encoded)};
  sendPieces(pieces);
}

void Link::tellTaken() noexcept {
  try {
    const Use use(*this);
    try {
      const std::lock_guard guard(m_sendLock);
      sendBeatLocked();
    } catch (...) {
      m_stream->shutdown();
    }
  } catch (const CS_Exception&) {
    // It has ended.
  }
}

void Link::beat() noexcept {
  try {
    const Use use(*this);
    try {
      const std::unique_lock lock(m_sendLock, std::try_to_lock);
      if (lock) sendBeatLocked();
    } catch (...) {
      m_stream->shutdown();
    }
  } catch (const CS_Exception&) {
    // It has ended.
  }
}

void Link::gather(const FrameHeader& header, const ValueWriter& values) {
  if (values.size() >= kGathered) return send(header, values);
  bool isFull;
  {
    const std::lock_guard guard(m_sendLock);
    append(m_announcements, header, values);
    m_hasAnnouncements = true;
    isFull = m_announcements.size() >= kGathered;
  }
  if (isFull) sendGathered();
}

void Link::sendGathered() {
  if (m_hasAnnouncements) sendFrames({});
}

void Link::sendFrames(std::span<const unsigned char> frames) {
  withSendLock([&] {
    if (frames.empty() && m_announcements.empty()) return;
    const std::array<Stream::Piece, 2> pieces{Stream::Piece(m_announcements), frames};
    sendPieces(m_announcements.empty() ? std::span(pieces).last(1) : std::span(pieces));
  });
}

void Link::sendText(const FrameHeader& header, const wchar_t* text) {
  ValueWriter values;
  values.writeText(text);
  send(header, values);
}

std::uint32_t Link::nextCorrelation() {
  const std::lock_guard guard(m_stateLock);
  return m_correlations.next(m_pending);
}

}  // namespace corvane
