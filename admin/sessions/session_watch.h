#pragma once

#include "admin/base/output.h"
#include "admin/sessions/session_printers.h"
#include "protocol/administration.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace admin {

// Keeps the printers of this machine in step with the sessions of the server: a session comes up when its client
// connects, and goes down when the client has been gone for a while, so that printers survive the restart of a client
// or of the server. A problem is reported once when it begins, not on every round. Belongs to one thread.
class SessionWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // What is done with a session: bringUp and takeDown, or their replacements in tests.
  struct Actions {
    std::function<SessionChange(const protocol::ListedSession& session)> up;
    std::function<SessionChange(unsigned session)> down;
    std::function<bool(unsigned session)> isUp;
    std::function<void(int session, const RefusedPrinter& printer)> tellRefusal;  // to the session's print client
  };

  SessionWatch(Actions actions, std::chrono::milliseconds grace, Output& output)
      : m_actions(std::move(actions)), m_grace(grace), m_output(output) {}

  // Handles an answer of the server.
  void see(const protocol::ServerStatus& facts, Clock::time_point now);
  // Handles that the server cannot be queried.
  void seeNothing(const std::string& why);

 private:
  void keepUp(const protocol::ListedSession& session);
  void keepDown(int session, Clock::time_point now);
  // Reports refused printers to the connected client, unless it has been informed of them.
  void tellRefused(int session, const std::vector<RefusedPrinter>& refused);
  // Reports the client's default printer, which is not made that of anybody here, when it is another one than before.
  void tellDefault(const protocol::ListedSession& session, const SessionChange& change);
  // Reports a problem unless it was the last one reported for that session.
  void trouble(int session, const std::string& text);
  void tell(const char* event, int session, const SessionChange& change);

  const Actions m_actions;
  const std::chrono::milliseconds m_grace;
  Output& m_output;
  std::set<int> m_up;                            // brought up or found up by this object
  std::map<int, Clock::time_point> m_goneSince;  // as observed by this object
  std::map<int, std::string> m_troubles;
  std::map<int, std::vector<RefusedPrinter>> m_refused;  // as last reported
  std::map<int, std::wstring> m_defaults;                // as last reported
  bool m_isAway = false;
};

}  // namespace admin
