#pragma once

#include "corvane/net/patience.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane {

using Deadline = std::chrono::steady_clock::time_point;
inline Deadline after(unsigned milliseconds) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

// The bytes of one connection, as a Link uses them: a Socket, or something that encrypts what it sends over one. Any
// thread may send while another one receives; two threads never do the same at once. Failures are CS_Exceptions (3102)
// with words for a log.
class Stream {
 public:
  using Piece = std::span<const unsigned char>;

  virtual ~Stream() = default;

  // What has to happen before the first byte of a Link, on the thread that carries out the handshake; a socket needs
  // nothing. Throws CS_Exception: 3101 when the other side does not do its part until then, 3109 when it does not prove
  // who it is.
  virtual void open(Deadline) {}
  // Who the peer has proven to be to this stream itself, in open(); nothing where the stream proves nothing and the
  // peers do it over the Link.
  struct ProvenPeer {
    std::wstring identity;                       // as corvane/trust/key.h writes it
    std::array<unsigned char, 32> keyMark = {};  // of the key that proved it
  };
  virtual std::optional<ProvenPeer> provenPeer() const { return std::nullopt; }

  // Before the first send: what a peer may keep a sender waiting.
  virtual void setPatience(const Patience& patience) = 0;

  // Sends all pieces in order, in as few system calls as they allow (one, as a rule). Blocks until the system has taken
  // them; fails when the peer lets it wait for longer than corvane/net/patience.h allows.
  virtual void send(std::span<const Piece> pieces) = 0;
  // True when some bytes could be sent without waiting, or a send would fail. Under the lock of the sender.
  virtual bool hasRoom() const noexcept = 0;

  // Waits for bytes until the deadline (without one, for ever) and returns how many came; 0 when the peer has closed.
  // Nothing when the deadline passed.
  virtual std::optional<std::size_t> receive(std::span<unsigned char> buffer, std::optional<Deadline> deadline) = 0;

  // From now on receive() without a deadline also returns nothing, when no byte has come for so long. False for a
  // stream that has no idleHandle(): it waits for ever.
  virtual bool returnWhenIdle(std::chrono::milliseconds) { return false; }
  // What poll() and epoll show as readable as soon as there is something to receive, or the stream has ended; nothing
  // where there is no such handle, or where bytes have come that receive() has not given yet. By the receiving thread;
  // valid until close().
  virtual std::optional<int> idleHandle() const noexcept { return std::nullopt; }

  // Ends both directions: a thread that is blocked in send() or receive() fails or sees the end, and what has come and
  // not been received is lost. The handle stays valid until close() or the object's end. Never blocks.
  virtual void shutdown() noexcept = 0;
  // Gives the handle back; the object can only be destroyed from then on. No other thread may be in a call. What was
  // sent still arrives, unless much of what the peer has sent was not received: then it learns at once that the
  // connection has ended, also when it waits in a send. Never blocks.
  virtual void close() noexcept = 0;

  // True when the peer has closed its end, or is gone; on Linux whatever of it has not been received yet. Never blocks;
  // may be called beside send() and receive().
  virtual bool peerHasClosed() const noexcept = 0;

  // "127.0.0.1:4711" of the other end, for logs.
  virtual std::string peerName() const = 0;
  // The address and port of this end and of the other one: 4 or 6, the bytes of the address, two of the port. Empty for
  // what is no network socket.
  virtual std::vector<unsigned char> localEndpoint() const = 0;
  virtual std::vector<unsigned char> peerEndpoint() const = 0;
};

}  // namespace corvane
