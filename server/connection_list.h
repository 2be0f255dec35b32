#pragma once

#include "corvane/components/connection.h"
#include "corvane/net/ready_watch.h"
#include "corvane/net/stream.h"
#include "corvane/trust/key.h"
#include "corvane/wire/heartbeat.h"
#include "server/client_rates.h"
#include "server/log.h"
#include "server/places.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace aps {

// The connections of the server, each with the thread that serves it, within the bounds of server/places.h. Where a
// room is full, one that is not needed makes room for the new one; where all are needed, the new one is refused. Either
// leaves a line in the log, and the others notice nothing. serve() is called by each thread that accepts; endAll() once
// none does any more.
//
// A connection whose peer says nothing for a while is parked: its thread ends, and it gets another one when there is
// something to serve. Signs of life are taken by one thread for all that are parked.
class ConnectionList {
 public:
  // Whether a connection serves somebody right now, so that it must stay; called with the list's lock held.
  using IsNeeded = std::function<bool(const CS_Connection&)>;

  // The keys outlive the list; without any (null) peers need to prove nothing.
  ConnectionList(std::shared_ptr<Log> log, const Places& places, const corvane::KeyFolder* keys, IsNeeded isNeeded,
                 const corvane::Patience& patience = {});
  ~ConnectionList() { endAll(); }
  ConnectionList(const ConnectionList&) = delete;
  ConnectionList& operator=(const ConnectionList&) = delete;

  // How print clients of other machines are sent their jobs; before serve(). The packing outlives the list; without one
  // nothing is packed.
  void useLines(const corvane::Packing* packing, ClientRates rates);
  // Carries out the handshake and serves the connection, on a thread of its own. A peer that had to prove who it is
  // gets the components that such a peer may have (server/places.h).
  // Throws std::bad_alloc; the connection is closed then.
  void serve(std::unique_ptr<corvane::Stream> stream, Room arriving = Room::kArriving);
  // How many connections there are in each room.
  std::array<std::size_t, 5> counts();
  // Ends every connection, whatever its peer does, and waits for their threads; connections accepted afterwards are
  // closed at once.
  void endAll();

 private:
  using Clock = Places::Clock;

  struct Session {
    std::thread thread;  // none while it is parked
    CS_RCPtr<CS_Connection> connection;
    std::string peer;  // address and port
    Room room = Room::kArriving;
    std::string who;  // the address, then the identity that was proven
    Clock::time_point arrived;
    bool isWelcome = false;    // behind the handshake; of its thread
    bool lacksThread = false;  // it was to be served, and the system had no thread
    int bridges = 0;           // that it has asked for
    bool isEvicted = false;    // it takes no place any more
    bool ended = false;
  };
  using Position = std::list<Session>::iterator;
  using Parked = std::map<std::uint64_t, Position>;
  // A connection that was told to leave; it is ended without the list's lock.
  struct Evicted {
    CS_RCPtr<CS_Connection> connection;  // null for none
    std::string peer;
    Room room = Room::kArriving;
  };

  void refuse(const std::string& peer, const std::string& why);
  void run(Position position) noexcept;
  // False when the connection was parked: it is another thread's then.
  bool serveOne(Position position);
  void welcome(Position position, const CS_RCPtr<CS_Connection>& connection);
  void noteEnd(Position position, const CS_Connection& connection, const std::wstring& reason);
  // False when it cannot be.
  bool park(Position position) noexcept;
  // The parked connection with that number has something to be served, or has ended.
  void ready(std::uint64_t number) noexcept;
  bool parkAgain(Parked::node_type& parked) noexcept;
  // Gives it a thread; later, where the system has none.
  void wake(Parked::node_type parked) noexcept;
  // Gives threads to those that lack one, or whose peer should have said something.
  void wakeDue() noexcept;
  // Lets a peer that has proven nothing wait for its refusal, so that one which comes again and again takes little of
  // this machine's time; only some wait at once, the others are told directly.
  void holdBack();
  // Gives the connection its place when it asks for the first component of its room. Why it gets no component of that
  // class; empty when it does.
  std::wstring admit(Position position, const std::wstring& className);
  // Whether the connection takes a place of that room, and is of that identity where one is named.
  static bool occupies(const Session& session, Room room, const std::string& who);
  // How many do.
  std::size_t takenLocked(Room room, const std::string& who = {}) const;
  // Tells one of them that is not needed to leave; none when all are needed.
  Evicted evictOneLocked(Room room, const std::string& who = {});
  static Evicted evictLocked(Session& session);
  // Ends it, and says why; the words are made behind that, because there may be no memory for them.
  template <class Words>
  void end(const Evicted& evicted, const Words& why);
  std::size_t takenLocked() const;
  // Closes, now and then, who has been silent for too long or has lost its key. Without memory it does so later.
  void watch() noexcept;
  void endSilent();
  // Ends the print clients whose key was replaced or taken away since they came.
  void endWithoutKey();
  // Joins the threads that have ended.
  void joinEnded();

  const std::shared_ptr<Log> m_log;
  const Places m_places;
  const corvane::KeyFolder* const m_keys;
  const IsNeeded m_isNeeded;
  corvane::Heartbeat m_heartbeat;
  const corvane::Packing* m_packing = nullptr;
  ClientRates m_rates;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_someEnded;
  std::condition_variable m_closed;
  std::size_t m_heldBack = 0;
  std::list<Session> m_sessions;
  std::uint64_t m_parkings = 0;
  Parked m_parked;
  std::list<std::thread> m_left;  // of connections that were parked: they end
  bool m_closing = false;
  std::thread m_watcher;
  corvane::ReadyWatch m_readyWatch;  // ends before all that it uses
};

}  // namespace aps
