#pragma once

#include "corvane/class_version_map.h"
#include "corvane/connection.h"
#include "server/printer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace aps {

// The sessions that this server has seen and the printers that their clients brought along. A session and its printers
// stay known when the client leaves, so that its queues keep their meaning until it comes back; when there are too many
// sessions, the one that has been without a client longest makes room.
//
// Safe from any thread. Nothing is sent while the table's lock is held.
class SessionTable {
 public:
  struct Limits {
    std::size_t sessions = 256;
    std::size_t printers = 64;  // of one session
  };

  // The outcome of a registration: the local names in the order of the printers, or why it was refused.
  struct Admission {
    std::vector<std::wstring> localNames;
    std::wstring refusal;          // empty when accepted
    std::optional<int> forgotten;  // the session that made room for this one
    bool accepted() const { return refusal.empty(); }
  };

  struct Found {
    Printer printer;
    int session = 0;
    CS_RCPtr<CS_Connection> client;  // null while the session has no print client
    CS_ClassVersionMap versions;     // of that client
  };

  // A session as an administrator sees it.
  struct Status {
    int number = 0;
    bool connected = false;
    std::chrono::system_clock::time_point since;  // of which it is (not) connected
    std::vector<Printer> printers;                // in the order of the registration
  };

  explicit SessionTable(const Limits& limits) : m_limits(limits) {}

  // The client of that connection brings the session's printers along; they replace those of an earlier client.
  Admission enter(int session, std::vector<Printer> printers, const CS_ClassVersionMap& versions,
                  const CS_RCPtr<CS_Connection>& client);
  // The client has gone; true when it was the session's client.
  bool leave(int session, const CS_Connection* client);

  // By the printer's name on this server.
  std::optional<Found> find(const std::wstring& localName) const;
  // The local names of a session's printers; empty for a session that has never had a client.
  std::vector<std::wstring> localNames(int session) const;
  // All sessions in the order of their numbers.
  std::vector<Status> status() const;

 private:
  struct Entry {
    std::vector<Printer> printers;
    CS_ClassVersionMap versions;
    CS_RCPtr<CS_Connection> client;
    std::uint64_t leftAt = 0;  // order in which clients left
    std::chrono::system_clock::time_point since;
  };

  std::wstring refusalLocked(int session, const std::vector<Printer>& printers) const;
  // False when every session has a client; otherwise forgotten is the session that was given up, if any.
  bool makeRoomLocked(std::optional<int>& forgotten);

  const Limits m_limits;
  mutable std::mutex m_lock;  // guards what follows
  std::map<int, Entry> m_sessions;
  std::map<std::wstring, std::pair<int, std::size_t>> m_byName;  // folded local name -> session, index
  std::uint64_t m_departures = 0;
};

}  // namespace aps
