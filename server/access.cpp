#include "server/access.h"

#include "protocol/names.h"

namespace aps {

std::wstring accessRefusal(const corvane::Identity& peer, const std::wstring& className) {
  const bool isRegistration = className == protocol::kSessionHostClass;
  if (peer.isMonitor() != isRegistration) return {};
  return L"components of the class " + className + (isRegistration ? L" are for sessions" : L" are for the monitor") +
         L" only, and this peer is " + peer.name();
}

std::wstring sessionRefusal(const corvane::Identity& peer, int session) {
  if (!peer.isMonitor() && peer.sessionNumber() == session) return {};
  return L"this print client has the key of " + peer.name() + L", not of session-" + std::to_wstring(session);
}

}  // namespace aps
