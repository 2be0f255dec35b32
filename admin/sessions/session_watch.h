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

// Keeps the printers of this machine in step with the sessions that the server tells of: a session comes up when its
// client is there, and goes down when the client has been gone for a while, so that a client or server that starts
// again costs nobody his printers. What went wrong is said when it begins and when it is over, and not in between.
// One thread.
class SessionWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // What is done about a session; bringUp and takeDown, but for tests.
  struct Actions {
    std::function<SessionChange(const protocol::ListedSession& session)> up;
    std::function<SessionChange(unsigned session)> down;
    std::function<bool(unsigned session)> isUp;
    std::function<void(int session, const RefusedPrinter& printer)> tellRefusal;  // to whom it may concern
  };

  SessionWatch(Actions actions, std::chrono::milliseconds grace, Output& output)
      : m_actions(std::move(actions)), m_grace(grace), m_output(output) {}

  // The server has said this.
  void see(const protocol::ServerStatus& facts, Clock::time_point now);
  // The server cannot be asked.
  void seeNothing(const std::string& why);

 private:
  void keepUp(const protocol::ListedSession& session);
  void keepDown(int session, Clock::time_point now);
  // Tells of the printers unless that was told already, to the client that is there.
  void tellRefused(int session, const std::vector<RefusedPrinter>& refused);
  // Says a trouble unless it was the last thing said about that session.
  void trouble(int session, const std::string& text);
  void tell(const char* event, int session, const SessionChange& change);

  const Actions m_actions;
  const std::chrono::milliseconds m_grace;
  Output& m_output;
  std::set<int> m_up;                            // brought up or found up by this object
  std::map<int, Clock::time_point> m_goneSince;  // as this object saw it
  std::map<int, std::string> m_troubles;
  std::map<int, std::vector<RefusedPrinter>> m_refused;  // as they were told
  bool m_isAway = false;
};

}  // namespace admin
