#pragma once

#include "corvane/net/socket.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace aps {

// Calls of this server to itself, which show whether it still takes in others: each comes to a listener as any peer's
// does, and the thread that accepts there must answer it. One thread calls, and each thread that accepts asks about
// each of its connections.
class OwnCalls {
 public:
  // The look is carried out by the thread that answers, before it does: at what everybody here needs, locks above all.
  explicit OwnCalls(std::function<void()> look) : m_look(std::move(look)) {}
  OwnCalls(const OwnCalls&) = delete;
  OwnCalls& operator=(const OwnCalls&) = delete;

  // Whether the connection that was accepted is such a call; it has been answered then, and nothing else comes of it.
  bool answer(corvane::Socket& accepted);
  // Calls the listener with that address, as corvane::Listener::address() gives it, and waits for the answer. Why there
  // is none; empty when there is.
  std::string call(const std::string& listener, corvane::Deadline deadline);
  // From now on every call fails, also one that waits. From any thread.
  void stop() noexcept;

 private:
  // Around one call; false when the server stops.
  bool begin(const corvane::Socket& socket, std::intptr_t handle);
  bool end();

  const std::function<void()> m_look;
  std::mutex m_lock;                       // guards what follows
  std::optional<std::intptr_t> m_calling;  // the socket of the call that is being made
  std::vector<unsigned char> m_endpoint;   // its own
  bool m_stopped = false;
};

}  // namespace aps
