#pragma once

#include "corvane/components/class.h"
#include "corvane/components/connection.h"
#include "corvane/trust/crypto.h"
#include "protocol/printer.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace aps {

using protocol::Printer;

// The sessions that this server has seen and the printers that their clients brought along. A session and its printers
// stay known when the client leaves, so that its queues keep their meaning until it comes back; when there are too many
// sessions, the one that has been without a client longest makes room.
//
// What the table does not know may only not have been told yet: print clients come back within seconds after this
// server has begun, or after their connection was lost. The operations that begin with "await" therefore wait for a
// client until Limits::clientWait after the one or the other, and never longer; a session that went before is not
// waited for.
//
// Safe from any thread. Nothing is sent while the table's lock is held.
class SessionTable {
 public:
  using Clock = std::chrono::steady_clock;

  struct Limits {
    std::size_t sessions = 256;
    std::size_t printers = 64;  // of one session
    // Characters of all texts of one session's printers. With these limits all that is known fits into the state file.
    std::size_t texts() const { return 4096 + 192 * printers; }
    std::chrono::milliseconds clientWait{20000};
  };

  // The outcome of a registration: the local names in the order of the printers, or why it was refused.
  struct Admission {
    std::vector<std::wstring> localNames;
    std::wstring refusal;          // empty when accepted
    std::optional<int> forgotten;  // the session that made room for this one
    bool accepted() const { return refusal.empty(); }
  };

  // Never null. Clients of one version share them.
  using Versions = std::shared_ptr<const CS_ClassVersionMap>;

  struct Found {
    Printer printer;
    int session = 0;
    CS_RCPtr<CS_Connection> client;  // null while the session has no print client
    Versions versions;               // of that client
    corvane::Bytes32 key = {};       // the mark of the key with which the latest client came; zeros where it had none
  };

  // A session as an administrator sees it.
  struct Status {
    int number = 0;
    bool connected = false;
    std::chrono::system_clock::time_point since;  // of which it is (not) connected
    std::vector<Printer> printers;                // in the order of the registration
    corvane::Bytes32 key = {};                    // as in Found
  };

  // Where to go on among the sessions, in the order of their numbers, and their printers.
  struct Place {
    int session = 0;
    std::size_t printer = 0;
  };
  // Some of the sessions; the first and the last one may have only some of their printers here.
  struct Page {
    std::vector<Status> sessions;
    std::optional<Place> next;  // none behind the last
  };

  // A caller that waits for a client is asked now and then, without the table's lock, whether it has given up.
  using HasGivenUp = std::function<bool()>;

  explicit SessionTable(const Limits& limits) : m_limits(limits) {}

  // The sessions that an earlier server had; the later ones stay longer when there are too many. Called once, before
  // the first client comes.
  void remember(std::vector<Status> sessions);
  // Called after each change of what known() answers, without the table's lock. Set before the first client comes.
  void onChange(std::function<void()> handler) { m_onChange = std::move(handler); }
  // All sessions, those first that make room for others first.
  std::vector<Status> known() const;

  // The client of that connection brings the session's printers along; they replace those of an earlier client, and
  // those that the same one brought before.
  Admission enter(int session, std::vector<Printer> printers, const CS_ClassVersionMap& versions,
                  const CS_RCPtr<CS_Connection>& client);
  // The client has gone; true when it was the session's client.
  bool leave(int session, const CS_Connection* client);

  // By the printer's name on this server.
  std::optional<Found> find(const std::wstring& localName) const;
  // The same, once its session has a client or is not waited for any more.
  std::optional<Found> awaitClient(const std::wstring& localName, const HasGivenUp& hasGivenUp) const;
  // True when awaitClient() would wait now.
  bool isExpected(const std::wstring& localName) const;
  // The local names of a session's printers; empty for a session that has never had a client, once that is certain.
  std::vector<std::wstring> awaitLocalNames(int session, const HasGivenUp& hasGivenUp) const;
  std::vector<std::wstring> localNames(int session) const;
  // Lets every waiting caller ask whether it has given up.
  void wake() const;
  // The print client of a session; null while it has none.
  CS_RCPtr<CS_Connection> clientOf(int session) const;
  // True for the print client of a session.
  bool isClient(const CS_Connection* connection) const;
  // All sessions in the order of their numbers.
  std::vector<Status> status() const;
  // As many of them from that place on as have so many characters of texts, a printer at the least.
  Page page(Place from, std::size_t characters) const;

 private:
  struct Entry {
    std::vector<Printer> printers;
    Versions versions = std::make_shared<const CS_ClassVersionMap>();
    CS_RCPtr<CS_Connection> client;
    corvane::Bytes32 key = {};
    std::uint64_t leftAt = 0;  // order in which clients left
    Clock::time_point left;    // when the last one did
    std::chrono::system_clock::time_point since;
  };

  std::optional<Found> findLocked(const std::wstring& localName) const;
  std::vector<std::wstring> localNamesLocked(int session) const;
  // Until when a client for that printer or session is waited for.
  Clock::time_point patienceLocked(const std::optional<Found>& found) const;
  // Waits until isThere() or until() has passed; both are called with the lock held.
  template <class IsThere, class Until>
  void waitLocked(std::unique_lock<std::mutex>& lock, const IsThere& isThere, const Until& until,
                  const HasGivenUp& hasGivenUp) const;
  void changed() const;
  std::wstring refusalLocked(int session, const std::vector<Printer>& printers, const CS_Connection* client) const;
  // False when every session has a client; otherwise forgotten is the session that was given up, if any.
  bool makeRoomLocked(std::optional<int>& forgotten);

  const Limits m_limits;
  const Clock::time_point m_began = Clock::now();
  std::function<void()> m_onChange;
  mutable std::condition_variable m_someoneCame;
  mutable std::mutex m_lock;  // guards what follows
  std::map<int, Entry> m_sessions;
  std::map<std::wstring, std::pair<int, std::size_t>> m_byName;  // folded local name -> session, index
  std::uint64_t m_departures = 0;
  Versions m_latestVersions;  // null before the first client
};

}  // namespace aps
