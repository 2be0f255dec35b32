#pragma once

#include "corvane/connection.h"
#include "corvane/key.h"
#include "corvane/socket.h"
#include "server/log.h"

#include <condition_variable>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace aps {

// The connections of the server, each with the thread that serves it. Past the limit a new connection is closed at once
// with a line in the log, and the others notice nothing. serve() and endAll() are called by the thread that accepts.
class ConnectionList {
 public:
  // The keys outlive the list; without any (null) peers need to prove nothing.
  ConnectionList(std::shared_ptr<Log> log, std::size_t limit, const corvane::KeyFolder* keys)
      : m_log(std::move(log)), m_limit(limit), m_keys(keys) {}
  ~ConnectionList() { endAll(); }
  ConnectionList(const ConnectionList&) = delete;
  ConnectionList& operator=(const ConnectionList&) = delete;

  // Carries out the handshake and serves the connection, on a thread of its own. A peer that had to prove who it is
  // gets the components that such a peer may have (server/access.h).
  void serve(corvane::Socket socket);
  // Ends every connection and waits for their threads; connections accepted afterwards are closed at once.
  void endAll();

 private:
  struct Session {
    std::thread thread;
    CS_RCPtr<CS_Connection> connection;  // null until the handshake is done
    bool ended = false;
  };
  using Position = std::list<Session>::iterator;

  void run(Position position, corvane::Socket socket) noexcept;
  void guard(CS_Connection& connection);
  void serveOne(Position position, corvane::Socket socket);
  // Joins the threads that have ended.
  void joinEnded();

  const std::shared_ptr<Log> m_log;
  const std::size_t m_limit;
  const corvane::KeyFolder* const m_keys;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_someEnded;
  std::list<Session> m_sessions;
  bool m_closing = false;
};

}  // namespace aps
