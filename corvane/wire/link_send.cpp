// The sending half of Link: frames leave in one gathered send.

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

#include <algorithm>
#include <array>

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

}  // namespace

void Link::throwIfEnded() {
  const std::lock_guard guard(m_stateLock);
  if (m_ended) throw CS_Exception(kConnectionLost, L"%s", m_reason.c_str());
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
  for (const auto& piece : pieces)
    m_sentSinceLook += piece.size();
}

void Link::announce(const FrameHeader& header, const ValueWriter& values) {
  throwIfEnded();
  FrameHeader whole = header;
  whole.length = static_cast<std::uint32_t>(values.size());
  const EncodedHeader encoded = encodeHeader(whole);
  const std::lock_guard guard(m_sendLock);
  // All or nothing: half a frame would end the connection at the other side.
  m_announcements.reserve(m_announcements.size() + encoded.size() + values.size());
  m_announcements.insert(m_announcements.end(), encoded.begin(), encoded.end());
  values.forEachPiece(
      [&](ValueWriter::Piece piece) { m_announcements.insert(m_announcements.end(), piece.begin(), piece.end()); });
}

void Link::send(FrameHeader header, const ValueWriter& values) {
  const Use use(*this);
  bool look = false;
  try {
    const std::lock_guard guard(m_sendLock);
    FrameBatch batch(header, values);
    while (!batch.done())
      sendPieces(batch.next(m_announcements));
    look = m_sentSinceLook >= kLookEvery;
    if (look) m_sentSinceLook = 0;
  } catch (const CS_Exception& exception) {
    endAndThrow(exception.detail());
  } catch (const std::exception&) {
    // Part of a frame may have left.
    endAndThrow(L"not enough memory");
  }
  if (look) lookForNews();
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

void Link::sendFrames(std::span<const unsigned char> frames) {
  const Use use(*this);
  try {
    const std::lock_guard guard(m_sendLock);
    const std::array<Stream::Piece, 2> pieces{Stream::Piece(m_announcements), frames};
    sendPieces(m_announcements.empty() ? std::span(pieces).last(1) : std::span(pieces));
  } catch (const CS_Exception& exception) {
    endAndThrow(exception.detail());
  } catch (const std::exception&) {
    // Part of a frame may have left.
    endAndThrow(L"not enough memory");
  }
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
