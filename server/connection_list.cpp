#include "server/connection_list.h"

#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "server/if_possible.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <system_error>

namespace aps {
namespace {

// Threads of connections that were told to leave and have not ended yet.
constexpr std::size_t kMaxEvicted = 256;
// Bridges that a connection may ask this server for, each with a thread. The monitor's component stands on one; the
// bridge of a job leads on and needs none.
constexpr int kMaxBridges = 4;

// What to do about a peer that did not get through the handshake.
const char* remedyFor(const CS_Exception& failure, bool isFromNetwork) {
  if (failure.number() == corvane::kNotProven) {
    return "a program of this system needs its key from the folder of --keys";
  }
  if (isFromNetwork && failure.number() == corvane::kProtocolViolation) {
    return "a print client reaches this port with --tls, as it does by itself from another machine";
  }
  return "the program that made it does not belong to this system, or has another version";
}

std::string addressOf(const std::string& peer) {
  return peer.substr(0, peer.rfind(':'));
}

}  // namespace

ConnectionList::ConnectionList(std::shared_ptr<Log> log, const Places& places, const corvane::KeyFolder* keys,
                               IsNeeded isNeeded, const corvane::Patience& patience)
    : m_log(std::move(log)),
      m_places(places),
      m_keys(keys),
      m_isNeeded(std::move(isNeeded)),
      m_heartbeat(patience),
      m_readyWatch([this](std::uint64_t number) { ready(number); }) {
  m_watcher = std::thread([this] { watch(); });
}

void ConnectionList::useLines(const corvane::Packing* packing, ClientRates rates) {
  m_packing = packing;
  m_rates = std::move(rates);
}

void ConnectionList::serve(std::unique_ptr<corvane::Stream> stream, Room arrivingRoom) {
  joinEnded();
  // All that takes memory stands in front of the lock: who is told to leave under it is ended behind it.
  std::list<Session> arrived(1);
  const Position position = arrived.begin();
  const std::string peer = stream->peerName();
  position->room = arrivingRoom;
  position->peer = peer;
  position->who = addressOf(peer);
  position->arrived = Clock::now();
  position->connection = CS_Connection::arrive(std::move(stream), &m_heartbeat);
  if (arrivingRoom == Room::kArrivingFromNetwork) position->connection->useLine({m_packing, 0});
  Evicted evicted;
  bool isFull = false;
  std::exception_ptr noThread;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_closing) return;
    if (takenLocked(arrivingRoom) >= m_places.limitOf(arrivingRoom) || takenLocked() >= m_places.all)
      evicted = evictOneLocked(arrivingRoom);
    isFull = takenLocked() >= m_places.all || m_sessions.size() >= m_places.all + kMaxEvicted;
    if (!isFull) {
      m_sessions.splice(m_sessions.end(), arrived);
      try {
        // The new thread waits for the lock, so its position has its thread before it can end.
        position->thread = std::thread([this, position] { run(position); });
      } catch (const std::exception&) {
        arrived.splice(arrived.end(), m_sessions, position);
        noThread = std::current_exception();
      }
    }
  }
  end(evicted, [] { return "it had asked for nothing yet, and its place is needed for one that came later"; });
  if (isFull) refuse(peer, fmt::format("there are {} connections, which is the limit; end some", m_places.all));
  try {
    if (noThread) std::rethrow_exception(noThread);
  } catch (const std::system_error& failure) {
    refuse(peer, fmt::format("no thread for it: {}; end some connections or programs of this machine", failure.what()));
  }
}

void ConnectionList::refuse(const std::string& peer, const std::string& why) {
  m_log->refusal("the limit of connections", fmt::format("connection from {} refused: {}", peer, why));
}

void ConnectionList::run(Position position) noexcept {
  std::string peer;
  bool isFromNetwork = false;
  try {
    {
      const std::lock_guard<std::mutex> guard(m_lock);
      peer = position->peer;
      isFromNetwork = position->room == Room::kArrivingFromNetwork;
    }
    try {
      if (!serveOne(position)) return;
    } catch (const CS_Exception& failure) {
      if (failure.number() == corvane::kProtocolViolation) holdBack();
      const std::string line = fmt::format("connection from {} refused: {}; {}", peer, programs::describe(failure),
                                           remedyFor(failure, isFromNetwork));
      const std::lock_guard<std::mutex> guard(m_lock);
      if (!position->isEvicted && !m_closing) m_log->refusal("greetings", line);
    }
  } catch (...) {
    m_log->refusal("memory", "a connection ended: out of memory");
  }
  CS_RCPtr<CS_Connection> connection;  // given back after the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  connection = std::move(position->connection);
  position->ended = true;
  if (m_closing) m_someEnded.notify_all();
}

bool ConnectionList::serveOne(Position position) {
  CS_RCPtr<CS_Connection> connection;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    connection = position->connection;
  }
  if (!std::exchange(position->isWelcome, true)) welcome(position, connection);
  std::optional<std::wstring> reason;
  while (!(reason = connection->serveUntilIdle(m_places.parkedAfter))) {
    if (park(position)) return false;
  }
  CS_Connection::destroy(connection, true);
  if (!reason->empty()) noteEnd(position, *connection, *reason);
  return true;
}

void ConnectionList::welcome(Position position, const CS_RCPtr<CS_Connection>& connection) {
  connection->welcome(m_keys, [this] { holdBack(); });
  std::string who = fmt::format("connection from {}", connection->peerName());
  if (const auto& identity = connection->peerIdentity()) {
    who += fmt::format(", {}", programs::oneLine(identity->name()));
    if (identity->isSession()) connection->limitRate(m_rates.of(identity->sessionNumber()));
    const std::lock_guard<std::mutex> guard(m_lock);
    position->who = programs::oneLine(identity->name());
  }
  connection->setAdmission([this, position, who, identity = connection->peerIdentity()](const std::wstring& className) {
    std::wstring refusal = identity ? accessRefusal(*identity, className) : std::wstring();
    if (refusal.empty()) refusal = admit(position, className);
    if (!refusal.empty()) {
      const std::string kind =
          identity ? fmt::format("classes for {}", programs::oneLine(identity->name())) : "classes";
      m_log->refusal(kind, fmt::format("{}: refused: {}", who, programs::oneLine(refusal)));
    }
    return refusal;
  });
}

void ConnectionList::noteEnd(Position position, const CS_Connection& connection, const std::wstring& reason) {
  const auto process = connection.peerValues().find(L"process");
  const bool isKnown = process != connection.peerValues().end();
  const std::string sender = isKnown ? fmt::format(", process {},", programs::oneLine(process->second)) : "";
  const std::string line =
      fmt::format("connection from {}{} ended: {}", connection.peerName(), sender, programs::oneLine(reason));
  const std::lock_guard<std::mutex> guard(m_lock);
  if (position->isEvicted) return;
  m_closing ? m_log->line(line) : m_log->refusal("ends of connections", line);
}

void ConnectionList::holdBack() {
  std::unique_lock<std::mutex> lock(m_lock);
  if (m_heldBack >= m_places.heldBack) return;
  ++m_heldBack;
  m_closed.wait_for(lock, m_places.beforeRefusal, [this] { return m_closing; });
  --m_heldBack;
}

std::wstring ConnectionList::admit(Position position, const std::wstring& className) {
  const std::optional<Room> room = roomFor(className);
  if (!room) return {};
  Evicted evicted;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (className == CS_Bridge::m_className && ++position->bridges > kMaxBridges) {
      return fmt::format(L"a connection gets {} bridges of this server; make another connection", kMaxBridges);
    }
    if (position->room == *room || (position->room == Room::kMonitor && *room == Room::kAdministration)) return {};
    if (position->room == Room::kClients || (!isArriving(position->room) && *room == Room::kClients)) {
      return L"a connection is either a print client's or the monitor's; make another one";
    }
    const auto& identity = position->connection->peerIdentity();
    const bool isOneSession = identity && !identity->isMonitor();  // or those who are invited to it
    if (isOneSession && takenLocked(*room, position->who) >= m_places.ofOneSession) {
      evicted = evictOneLocked(*room, position->who);
    } else if (takenLocked(*room) >= m_places.limitOf(*room)) {
      evicted = evictOneLocked(*room);
    } else {
      position->room = *room;
      return {};
    }
    if (evicted.connection) position->room = *room;
  }
  if (!evicted.connection) {
    return fmt::format(L"all places for {} are in use; try again when some are free", corvane::fromUtf8(nameOf(*room)));
  }
  end(evicted,
      [&] { return fmt::format("all places for {} were taken, and it had been silent longest", nameOf(*room)); });
  return {};
}

template <class Words>
void ConnectionList::end(const Evicted& evicted, const Words& why) {
  if (!evicted.connection) return;
  CS_Connection::destroy(evicted.connection, true);
  ifPossible([&] {
    m_log->refusal(fmt::format("places for {}", nameOf(evicted.room)),
                   fmt::format("connection from {} closed: {}", evicted.peer, why()));
  });
}

std::array<std::size_t, 5> ConnectionList::counts() {
  std::array<std::size_t, 5> counts{};
  const std::lock_guard<std::mutex> guard(m_lock);
  for (const Session& session : m_sessions) {
    if (!session.isEvicted && !session.ended) ++counts.at(static_cast<std::size_t>(session.room));
  }
  return counts;
}

std::size_t ConnectionList::takenLocked() const {
  std::size_t taken = 0;
  for (const Session& session : m_sessions)
    taken += session.isEvicted || session.ended ? 0 : 1;
  return taken;
}

bool ConnectionList::occupies(const Session& session, Room room, const std::string& who) {
  return session.room == room && !session.isEvicted && !session.ended && (who.empty() || session.who == who);
}

std::size_t ConnectionList::takenLocked(Room room, const std::string& who) const {
  return static_cast<std::size_t>(
      std::ranges::count_if(m_sessions, [&](const Session& session) { return occupies(session, room, who); }));
}

ConnectionList::Evicted ConnectionList::evictOneLocked(Room room, const std::string& who) {
  std::vector<Session*> occupants;
  std::vector<Occupant> choice;
  for (Session& session : m_sessions) {
    if (!occupies(session, room, who)) continue;
    const bool arrives = isArriving(room);
    occupants.push_back(&session);
    choice.push_back({session.who, arrives ? session.arrived : session.connection->lastHeard(),
                      !arrives && m_isNeeded(*session.connection)});
  }
  const auto chosen = connectionToClose(choice);
  return chosen ? evictLocked(*occupants[*chosen]) : Evicted();
}

ConnectionList::Evicted ConnectionList::evictLocked(Session& session) {
  Evicted evicted{session.connection, session.peer, session.room};
  session.isEvicted = true;  // behind all that takes memory: who is told to leave is ended
  return evicted;
}

void ConnectionList::watch() noexcept {
  std::unique_lock<std::mutex> lock(m_lock);
  while (!m_closed.wait_for(lock, m_places.lookEvery, [this] { return m_closing; })) {
    lock.unlock();
    ifPossible([this] { endSilent(); });
    ifPossible([this] { endWithoutKey(); });
    wakeDue();
    joinEnded();
    lock.lock();
  }
}

void ConnectionList::endSilent() {
  std::vector<Evicted> silent;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    silent.reserve(m_sessions.size());
    for (Session& session : m_sessions) {
      const auto idle = m_places.idleOf(session.room);
      if (!idle || session.isEvicted || session.ended) continue;
      const bool arrives = isArriving(session.room);
      const auto since = arrives ? session.arrived : session.connection->lastHeard();
      if (Clock::now() - since < *idle || (!arrives && m_isNeeded(*session.connection))) continue;
      silent.push_back(evictLocked(session));
    }
  }
  for (const Evicted& evicted : silent) {
    const auto idle = std::chrono::duration_cast<std::chrono::seconds>(*m_places.idleOf(evicted.room));
    end(evicted,
        [&] { return fmt::format("it is one of {}, and was idle for {} s", nameOf(evicted.room), idle.count()); });
  }
}

void ConnectionList::endWithoutKey() {
  if (m_keys == nullptr) return;
  std::vector<CS_RCPtr<CS_Connection>> clients;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const Session& session : m_sessions) {
      if (session.room == Room::kClients && !session.isEvicted && !session.ended) clients.push_back(session.connection);
    }
  }
  for (const auto& client : clients) {
    const auto& identity = client->peerIdentity();
    if (!identity || !identity->isSession() || m_keys->isStill(*identity, client->peerKeyMark())) continue;
    CS_Connection::destroy(client, true);
    m_log->refusal("keys",
                   fmt::format("connection from {} closed: the key of {} is not the one any more that it came with",
                               client->peerName(), programs::oneLine(identity->name())));
  }
}

void ConnectionList::joinEnded() {
  std::list<Session> ended;
  std::list<std::thread> left;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    left.swap(m_left);
    for (auto at = m_sessions.begin(); at != m_sessions.end();) {
      const auto next = std::next(at);
      if (at->ended) ended.splice(ended.end(), m_sessions, at);
      at = next;
    }
  }
  for (std::thread& thread : left)
    thread.join();
  for (Session& session : ended) {
    if (session.thread.joinable()) session.thread.join();
  }
}

void ConnectionList::endAll() {
  std::vector<CS_RCPtr<CS_Connection>> open;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_closing = true;
    for (const Session& session : m_sessions) {
      if (session.connection) open.push_back(session.connection);
    }
    m_closed.notify_all();
  }
  for (const auto& connection : open)
    CS_Connection::destroy(connection, true);
  wakeDue();
  {
    std::unique_lock<std::mutex> guard(m_lock);
    m_someEnded.wait(guard, [this] {
      for (const Session& session : m_sessions) {
        if (!session.ended) return false;
      }
      return true;
    });
  }
  joinEnded();
  if (m_watcher.joinable()) m_watcher.join();
}

}  // namespace aps
