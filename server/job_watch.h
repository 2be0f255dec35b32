#pragma once

#include "corvane/components/bridge_router.h"

#include <string>
#include <string_view>

namespace aps {

// Is told of each job on its way through this server, by who serves the port monitor. Any thread; nothing here may hold
// up a job for longer than it says.
class JobWatch {
 public:
  virtual ~JobWatch() = default;

  // A job of that printer, by its name on this server, from that process has found its session. Returns its number.
  virtual int begin(const std::wstring& printer, int session, int process) = 0;
  // This server takes it in its client's place; before its route is made.
  virtual void hold(int job) = 0;
  // Its route is made, and can be cut.
  virtual void routed(int job, CS_RCPtr<CS_BridgeRouter> router) = 0;
  // What goes through it. Returns when the end's answer can be passed on.
  virtual void passed(int job, const CS_BridgeRouter::Passing& passing) noexcept = 0;
  // It has ended; isShown when a program was started to show it instead. True when somebody has canceled it.
  virtual bool ended(int job, const CS_BridgeRouter::Ending& ending, bool isShown) noexcept = 0;
  // It has not come so far.
  virtual void refused(int job, std::wstring_view cause) noexcept = 0;
};

}  // namespace aps
