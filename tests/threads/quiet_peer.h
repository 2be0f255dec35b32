#pragma once

#include "corvane/net/socket.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <thread>

// An application server with print clients behind it, for any number of connections at once: it answers every request
// of the module with success and keeps nothing of what arrives. One connection in kHangUpEvery is ended in the middle.
// The client printer that it describes wants its jobs as they come, every third one collected.
class QuietPeer {
 public:
  QuietPeer();
  ~QuietPeer();
  QuietPeer(const QuietPeer&) = delete;
  QuietPeer& operator=(const QuietPeer&) = delete;

  std::uint16_t port() const { return m_listener.port(); }
  unsigned connections() const { return m_connections; }

  static constexpr unsigned kHangUpEvery = 16;

 private:
  struct Served {
    std::thread thread;
    std::atomic<bool> isOver{false};
  };
  void acceptAll();
  void reap(bool all);

  corvane::Listener m_listener;
  std::atomic<unsigned> m_connections{0};
  std::list<Served> m_served;  // touched by the accepting thread, and at the end
  std::thread m_acceptor;
};
