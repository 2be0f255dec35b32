#pragma once

#include "corvane/net/patience.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane {

using Deadline = std::chrono::steady_clock::time_point;
inline Deadline after(unsigned milliseconds) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

// One connected TCP socket with Nagle's delay switched off. Owns the handle. Any thread may send while another one
// receives; two threads never do the same at once. Failures are CS_Exceptions (3101 for connecting, 3102 afterwards)
// with the system's own words.
class Socket {
 public:
  using Piece = std::span<const unsigned char>;

  Socket() = default;
  explicit Socket(std::intptr_t handle);
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  ~Socket();

  // Dials the loopback address (or the numeric address given as host); preferIpv6 tries [::1] before 127.0.0.1 for
  // "localhost".
  static Socket connect(const std::string& host, std::uint16_t port, bool preferIpv6);

  bool isOpen() const { return m_handle != kNone; }

  // Before the first send: what a peer may keep a sender waiting.
  void setPatience(const Patience& patience) { m_allowance = SendAllowance(patience.send); }

  // Sends all pieces in order, in as few system calls as they allow (one, as a rule). Blocks until the system has taken
  // them; fails when the peer lets it wait for longer than corvane/net/patience.h allows.
  void send(std::span<const Piece> pieces);

  // True when some bytes could be sent without waiting, or a send would fail. Under the lock of the sender.
  bool hasRoom() const noexcept;

  // Waits for bytes until the deadline (without one, for ever) and returns how many came; 0 when the peer has closed.
  // Nothing when the deadline passed.
  std::optional<std::size_t> receive(std::span<unsigned char> buffer, std::optional<Deadline> deadline);

  // Ends both directions: a thread that is blocked in send() or receive() fails or sees the end, and what has come and
  // not been received is lost. The handle stays valid until close() or the object's end. Never blocks.
  void shutdown() noexcept;
  // Gives the handle back; the object can only be destroyed from then on. No other thread may be in a call. What was
  // sent still arrives, unless much of what the peer has sent was not received: then it learns at once that the
  // connection has ended, also when it waits in a send. Never blocks.
  void close() noexcept;

  // True when the peer has closed its end, or is gone; on Linux whatever of it has not been received yet. Never blocks;
  // may be called beside send() and receive().
  bool peerHasClosed() const noexcept;

  // "127.0.0.1:4711" of the other end, for logs.
  std::string peerName() const;
  // The address and port of this end and of the other one: 4 or 6, the bytes of the address, two of the port. Empty for
  // what is no network socket.
  std::vector<unsigned char> localEndpoint() const;
  std::vector<unsigned char> peerEndpoint() const;

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t m_handle = kNone;
  SendAllowance m_allowance{Patience().send};
#ifdef _WIN32
  void awaitSend(void* send);

  void* m_receiveEvent = nullptr;  // of the overlapped receive
  void* m_sendEvent = nullptr;     // of the overlapped send
  std::atomic<bool> m_shutDown{false};
#endif
};

// A listening TCP socket.
class Listener {
 public:
  // "127.0.0.1:4711", "[::1]:4711"; port 0 lets the system choose. Throws CS_Exception that says what is wrong with the
  // address or that the port is taken.
  explicit Listener(const std::string& address);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // The next connection; nothing when stop() was called. One that ended before it was accepted is passed over. One for
  // which this process has no descriptor left is turned away, with one that is kept for that, so that its peer knows
  // at once and nobody waits in vain; each time the handler is called with the system's words, on this thread.
  std::optional<Socket> accept();
  void onShortage(std::function<void(const std::wstring& why)> handler) { m_onShortage = std::move(handler); }
  // Ends accept() on whichever thread it runs. May be called from any thread and from a signal handler.
  void stop() noexcept;

  // "127.0.0.1:4711" with the port that was chosen.
  std::string address() const;
  std::uint16_t port() const;

 private:
  // Turns a connection away; false when that was not possible, and trying again at once would be in vain.
  bool turnAway();

  std::atomic<std::intptr_t> m_handle;
  std::atomic<bool> m_stopped{false};
  std::intptr_t m_spare = -1;  // a descriptor that is kept for turning away, where the system counts them
  std::function<void(const std::wstring& why)> m_onShortage;
};

// Brings the system's network up; true when it can be used. Called by CS_ComponentServer::initialize.
bool initializeNetwork();

}  // namespace corvane
