#pragma once

#include "corvane/components/connection.h"

#include <thread>
#include <utility>

namespace aps {

// Serves one end of a connection within this process on a thread of its own, until the connection or the object ends.
// Throws std::system_error or std::bad_alloc when there is no thread for it.
class ServedEnd {
 public:
  explicit ServedEnd(CS_RCPtr<CS_Connection> connection)
      : m_connection(std::move(connection)), m_thread([this] { serve(); }) {}
  ServedEnd(const ServedEnd&) = delete;
  ServedEnd& operator=(const ServedEnd&) = delete;
  ~ServedEnd() {
    endConnection(m_connection);
    m_thread.join();
  }

  const CS_RCPtr<CS_Connection>& connection() const { return m_connection; }

  // Ends a connection within this process with all that stands on it, memory or not: one that has begun to end ends,
  // and what failed there has said so.
  static void endConnection(const CS_RCPtr<CS_Connection>& connection) noexcept {
    try {
      CS_Connection::destroy(connection, true);
    } catch (...) {
      // Its components have been let go all the same.
    }
  }

 private:
  void serve() noexcept {
    try {
      m_connection->serve();
    } catch (...) {
      endConnection(m_connection);
    }
  }

  const CS_RCPtr<CS_Connection> m_connection;
  std::thread m_thread;
};

}  // namespace aps
