#pragma once

#include "corvane/net/stream.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace corvane {

// The name that this machine gives itself in the network; empty when it has none.
std::wstring hostName();

// One connected TCP socket with Nagle's delay switched off. Owns the handle. Connecting fails with a CS_Exception
// (3101) in the system's own words.
class Socket final : public Stream {
 public:
  using Piece = Stream::Piece;

  Socket() = default;
  explicit Socket(std::intptr_t handle);
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  ~Socket() override;

  // Dials the loopback address (or the numeric address given as host); preferIpv6 tries [::1] before 127.0.0.1 for
  // "localhost".
  static Socket connect(const std::string& host, std::uint16_t port, bool preferIpv6);

  bool isOpen() const { return m_handle != kNone; }

  void setPatience(const Patience& patience) override { m_allowance = SendAllowance(patience.send); }
  void send(std::span<const Piece> pieces) override;
  bool hasRoom() const noexcept override;
  std::optional<std::size_t> receive(std::span<unsigned char> buffer, std::optional<Deadline> deadline) override;
#ifndef _WIN32
  bool returnWhenIdle(std::chrono::milliseconds idle) override;
  std::optional<int> idleHandle() const noexcept override {
    return static_cast<int>(m_handle);
  }
#endif
  void shutdown() noexcept override;
  void close() noexcept override;
  bool peerHasClosed() const noexcept override;
  std::string peerName() const override;
  std::vector<unsigned char> localEndpoint() const override;
  std::vector<unsigned char> peerEndpoint() const override;

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
