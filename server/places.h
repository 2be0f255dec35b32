#pragma once

#include "corvane/trust/key.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace aps {

// What a connection is for. It is known from the first component that the peer asks for, with keys as well as without,
// and until then the connection is only arriving: a peer that says nothing takes no place from one that does.
// Peers from the network arrive in a room of their own, so that nobody there keeps those of this machine out.
enum class Room { kArriving, kArrivingFromNetwork, kClients, kMonitor, kAdministration };

inline bool isArriving(Room room) {
  return room == Room::kArriving || room == Room::kArrivingFromNetwork;
}

// The room of the connections that ask for components of that class; nothing for a class of no meaning here.
std::optional<Room> roomFor(const std::wstring& className);
// For a line of the log: "print clients".
const char* nameOf(Room room);

// Why a peer that has proven who it is may not have a component of that class; empty when it may. A session's print
// client registers its session and nothing else, a guest redeems an invitation and nothing else; everything else is the
// monitor's.
std::wstring accessRefusal(const corvane::Identity& peer, const std::wstring& className);
// Why such a peer may not register that session as its own; empty when it may.
std::wstring sessionRefusal(const corvane::Identity& peer, int session);

// How many connections there may be at the same time, and how long one may say nothing. Each may need a thread. The
// rooms are apart: a full one takes nothing from the others.
struct Places {
  using Clock = std::chrono::steady_clock;

  std::size_t arriving = 256;       // without a handshake, not proven, or nothing asked for yet
  std::size_t fromNetwork = 128;    // likewise, of those that come over the network
  std::size_t clients = 256 + 64;   // print clients: one for each session, and those that register just now
  std::size_t monitor = 512;        // jobs, questions and records of the monitor
  std::size_t administration = 16;  // questions of administration tools
  std::size_t ofOneSession = 4;     // of the clients with one session's key
  std::size_t all = 256 + 128 + 256 + 64 + 512 + 16;

  // Without a word for so long, a connection that is not needed is closed. The monitor's may be silent for days.
  std::chrono::milliseconds arrivingIdle{30000};  // from its beginning, whatever it says
  std::chrono::milliseconds clientsIdle{30000};
  std::chrono::milliseconds administrationIdle{600000};
  std::chrono::milliseconds lookEvery{1000};
  // Without a word for so long, a connection is served without a thread of its own until there is one.
  std::chrono::milliseconds parkedAfter{1000};

  // A peer that proves nothing is told so after a moment, and so many wait for that at once.
  std::chrono::milliseconds beforeRefusal{10};
  std::size_t heldBack = 64;

  std::size_t limitOf(Room room) const;
  std::optional<std::chrono::milliseconds> idleOf(Room room) const;
};

// One connection of a room, for the choice of the one that makes room for another.
struct Occupant {
  std::string who;  // an identity that was proven, otherwise the address
  Places::Clock::time_point lastHeard;
  bool isNeeded = false;  // it has a job, serves a session, or waits for an answer
};

// Which of the connections of a full room is closed for a new one: of the peer that has the most of them, the one that
// has been silent longest; never one that is needed. Nothing when all are.
std::optional<std::size_t> connectionToClose(const std::vector<Occupant>& room);

}  // namespace aps
