#include "server/connection_list.h"

#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "programs/failure.h"
#include "programs/one_line.h"
#include "server/access.h"

#include <system_error>
#include <vector>

namespace aps {

void ConnectionList::serve(corvane::Socket socket) {
  joinEnded();
  const std::string peer = socket.peerName();
  std::unique_lock<std::mutex> guard(m_lock);
  if (m_sessions.size() >= m_limit) {
    guard.unlock();
    m_log->refusal("the limit of connections",
                   "connection from " + peer + " refused: there are " + std::to_string(m_limit) +
                       " connections, which is the limit; end some, or start aps with a higher --max-connections");
    return;
  }
  const Position position = m_sessions.emplace(m_sessions.end());
  try {
    // The new thread waits for the lock, so its position has its thread before it can end.
    position->thread =
        std::thread([this, position, owned = std::move(socket)]() mutable { run(position, std::move(owned)); });
  } catch (const std::system_error& failure) {
    m_sessions.erase(position);
    guard.unlock();
    m_log->refusal("threads", "connection from " + peer + " refused: no thread for it: " + failure.what() +
                                  "; end some connections or programs of this machine");
  }
}

void ConnectionList::run(Position position, corvane::Socket socket) noexcept {
  try {
    const std::string peer = socket.peerName();
    try {
      serveOne(position, std::move(socket));
    } catch (const CS_Exception& failure) {
      const bool isAboutKeys = failure.number() == corvane::kNotProven;
      m_log->refusal("greetings",
                     "connection from " + peer + " refused: " + programs::describe(failure) +
                         (isAboutKeys ? "; a program of this system needs the key that stands in the folder of --keys"
                                      : "; the program that made it is none of this system, or of another version"));
    }
  } catch (...) {
    m_log->refusal("memory", "a connection ended: out of memory");
  }
  CS_RCPtr<CS_Connection> connection;  // given back after the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  connection = std::move(position->connection);
  position->ended = true;
  m_someEnded.notify_all();
}

void ConnectionList::serveOne(Position position, corvane::Socket socket) {
  const std::string peer = socket.peerName();
  const CS_RCPtr<CS_Connection> connection = CS_Connection::accept(std::move(socket), m_keys);
  if (connection->peerIdentity()) guard(*connection);
  const auto process = connection->peerValues().find(L"process");
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (!m_closing) position->connection = connection;
  }
  std::wstring reason;
  {
    bool closing;
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      closing = !position->connection;
    }
    if (!closing) reason = connection->serve();
  }
  CS_Connection::destroy(connection, true);
  if (reason.empty()) return;
  const std::string line =
      "connection from " + peer +
      (process == connection->peerValues().end() ? std::string()
                                                 : ", process " + programs::oneLine(process->second) + ",") +
      " ended: " + programs::oneLine(reason);
  const std::lock_guard<std::mutex> guard(m_lock);
  m_closing ? m_log->line(line) : m_log->refusal("ends of connections", line);
}

void ConnectionList::guard(CS_Connection& connection) {
  const corvane::Identity peer = *connection.peerIdentity();
  const std::string who = "connection from " + connection.peerName() + ", " + programs::oneLine(peer.name());
  connection.setAdmission([log = m_log, peer, who](const std::wstring& className) {
    std::wstring refusal = accessRefusal(peer, className);
    if (!refusal.empty())
      log->refusal("classes for " + programs::oneLine(peer.name()), who + ": refused: " + programs::oneLine(refusal));
    return refusal;
  });
}

void ConnectionList::joinEnded() {
  std::list<Session> ended;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (auto at = m_sessions.begin(); at != m_sessions.end();) {
      const auto next = std::next(at);
      if (at->ended) ended.splice(ended.end(), m_sessions, at);
      at = next;
    }
  }
  for (Session& session : ended)
    session.thread.join();
}

void ConnectionList::endAll() {
  std::vector<CS_RCPtr<CS_Connection>> open;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_closing = true;
    for (const Session& session : m_sessions) {
      if (session.connection) open.push_back(session.connection);
    }
  }
  for (const auto& connection : open)
    CS_Connection::destroy(connection, true);
  {
    // A handshake in progress ends by its own time limit.
    std::unique_lock<std::mutex> guard(m_lock);
    m_someEnded.wait(guard, [this] {
      for (const Session& session : m_sessions) {
        if (!session.ended) return false;
      }
      return true;
    });
  }
  joinEnded();
}

}  // namespace aps
