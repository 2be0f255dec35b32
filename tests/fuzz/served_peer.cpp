#include "tests/fuzz/served_peer.h"

#include "corvane/records/exception.h"
#include "corvane/wire/link.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace fuzz {
namespace {

void append(std::vector<unsigned char>& bytes, corvane::FrameHeader header, const corvane::ValueWriter& values) {
  header.length = static_cast<std::uint32_t>(values.size());
  const corvane::EncodedHeader encoded = corvane::encodeHeader(header);
  bytes.insert(bytes.end(), encoded.begin(), encoded.end());
  values.forEachPiece([&](auto piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
}

const std::vector<unsigned char>& helloFrame() {
  static const std::vector<unsigned char> hello = [] {
    corvane::FrameHeader header;
    header.kind = corvane::FrameKind::kHello;
    header.number = corvane::kProtocolVersion;
    corvane::ValueWriter values;
    values.writeText(L"corvane");
    values.writeInt(1);
    values.writeText(L"process");
    values.writeText(L"1234");
    std::vector<unsigned char> bytes;
    append(bytes, header, values);
    return bytes;
  }();
  return hello;
}

}  // namespace

void ServedPeer::sayHello() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
  m_far = ends[0];
  const std::vector<unsigned char>& hello = helloFrame();
  if (::send(m_far, hello.data(), hello.size(), 0) != static_cast<ssize_t>(hello.size())) std::abort();
  m_connection = CS_Connection::accept(corvane::Socket(ends[1]));
  m_dispatcher = std::make_unique<corvane::Dispatcher>(*m_connection, *m_connection->link(), nullptr);
}

ServedPeer::~ServedPeer() {
  if (!m_connection) return;
  CS_Connection::destroy(m_connection, true);
  m_dispatcher.reset();
  takeAnswers();
  ::close(m_far);
  // The thread that tells a client its news may hold it a moment longer.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;;) {
    m_connection->addRef();
    if (m_connection->removeRef() == 1) break;
    if (std::chrono::steady_clock::now() > deadline) std::abort();
    std::this_thread::yield();
  }
}

// As a connection's own reading thread does.
void ServedPeer::feed(std::span<Step> steps) {
  if (!m_connection) sayHello();
  corvane::Link& link = *m_connection->link();
  if (link.hasEnded()) return;
  try {
    for (Step& step : steps) {
      m_dispatcher->onFrame(step.frame);
      receiveAnswers();
    }
    m_dispatcher->onBatchEnd();
  } catch (const CS_Exception& failure) {
    m_dispatcher->onBatchAbandoned();
    link.end(failure.detail());
  } catch (const std::exception&) {
    m_dispatcher->onBatchAbandoned();
    link.end(L"not enough memory");
  }
}

void ServedPeer::takeAnswers() {
  if (!m_connection) return;
  receiveAnswers();
  readAnswers();
}

void ServedPeer::receiveAnswers() {
  unsigned char buffer[65536];
  for (;;) {
    const ssize_t got = ::recv(m_far, buffer, sizeof buffer, MSG_DONTWAIT);
    if (got <= 0) break;
    m_answers.insert(m_answers.end(), buffer, buffer + got);
  }
}

void ServedPeer::readAnswers() {
  std::span<const unsigned char> rest = m_answers;
  while (rest.size() >= corvane::kFrameHeaderSize) {
    corvane::FrameHeader header;
    try {
      header = corvane::decodeHeader(rest.first<corvane::kFrameHeaderSize>());
    } catch (const CS_Exception&) {
      std::abort();  // what this side sends is no frame
    }
    if (rest.size() < corvane::kFrameHeaderSize + header.length) break;
    const auto payload = rest.subspan(corvane::kFrameHeaderSize, header.length);
    if (header.kind == corvane::FrameKind::kReply && payload.size() >= 5 && payload[0] == 'i' &&
        static_cast<std::int32_t>(corvane::loadLittleEndian32(&payload[1])) > 0) {
      ++m_positiveReplies;
    }
    rest = rest.subspan(corvane::kFrameHeaderSize + header.length);
  }
  m_answers.erase(m_answers.begin(), m_answers.end() - static_cast<std::ptrdiff_t>(rest.size()));
}

void play(FrameScript& script, std::span<ServedPeer* const> peers) {
  std::span<Step> rest = script.steps();
  while (!rest.empty()) {
    std::size_t count = 1;
    while (count < rest.size() && count < kFramesAtOnce &&
           rest[count].peer % peers.size() == rest[0].peer % peers.size() && !rest[count - 1].endsReceive) {
      ++count;
    }
    peers[rest[0].peer % peers.size()]->feed(rest.first(count));
    for (ServedPeer* peer : peers)
      peer->takeAnswers();
    rest = rest.subspan(count);
  }
}

}  // namespace fuzz
