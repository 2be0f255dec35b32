#include "server/places.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/program_monitor_c.h"
#include "protocol/names.h"

#include <fmt/format.h>
#include <fmt/xchar.h>
#include <map>

namespace aps {

std::optional<Room> roomFor(const std::wstring& className) {
  if (className == protocol::kSessionHostClass || className == protocol::kInvitationHostClass) return Room::kClients;
  if (className == protocol::kAdministrationServerClass) return Room::kAdministration;
  for (const wchar_t* name : {protocol::kPortMonitorClientClass, CS_ProgramMonitor_c::m_peerClassName,
                              CS_Bridge::m_className, CS_BridgeRouter::getClassName()}) {
    if (className == name) return Room::kMonitor;
  }
  return std::nullopt;
}

const char* nameOf(Room room) {
  switch (room) {
    case Room::kArriving:
      return "peers that have asked for nothing yet";
    case Room::kArrivingFromNetwork:
      return "peers from the network that have asked for nothing yet";
    case Room::kClients:
      return "print clients";
    case Room::kMonitor:
      return "the port monitor";
    case Room::kAdministration:
      return "administration tools";
  }
  return "";
}

std::wstring accessRefusal(const corvane::Identity& peer, const std::wstring& className) {
  using Kind = corvane::Identity::Kind;
  Kind wanted = Kind::kMonitor;
  const wchar_t* who = L"the monitor";
  if (className == protocol::kSessionHostClass) {
    wanted = Kind::kSession;
    who = L"sessions";
  } else if (className == protocol::kInvitationHostClass) {
    wanted = Kind::kInvitation;
    who = L"guests with an invitation";
  }
  if (peer.kind() == wanted) return {};
  return fmt::format(L"components of the class {} are for {} only, and this peer is {}", className, who, peer.name());
}

std::wstring sessionRefusal(const corvane::Identity& peer, int session) {
  if (peer.isSession() && peer.sessionNumber() == session) return {};
  return fmt::format(L"this print client has the key of {}, not of session-{}", peer.name(), session);
}

std::size_t Places::limitOf(Room room) const {
  switch (room) {
    case Room::kArriving:
      return arriving;
    case Room::kArrivingFromNetwork:
      return fromNetwork;
    case Room::kClients:
      return clients;
    case Room::kMonitor:
      return monitor;
    case Room::kAdministration:
      return administration;
  }
  return 0;
}

std::optional<std::chrono::milliseconds> Places::idleOf(Room room) const {
  switch (room) {
    case Room::kArriving:
    case Room::kArrivingFromNetwork:
      return arrivingIdle;
    case Room::kClients:
      return clientsIdle;
    case Room::kMonitor:
      return std::nullopt;
    case Room::kAdministration:
      return administrationIdle;
  }
  return std::nullopt;
}

std::optional<std::size_t> connectionToClose(const std::vector<Occupant>& room) {
  std::map<std::string, std::size_t> count;
  for (const Occupant& occupant : room)
    ++count[occupant.who];
  std::optional<std::size_t> chosen;
  for (std::size_t i = 0; i < room.size(); ++i) {
    if (room[i].isNeeded) continue;
    const std::size_t mine = count[room[i].who];
    const std::size_t most = chosen ? count[room[*chosen].who] : 0;
    if (mine > most || (mine == most && room[i].lastHeard < room[*chosen].lastHeard)) chosen = i;
  }
  return chosen;
}

}  // namespace aps
