#pragma once

#include "server/log.h"
#include "server/session_table.h"

#include <memory>

namespace aps {

// What the components of the application server share. Outlives every component; safe from any thread.
struct Application {
  Application(std::shared_ptr<Log> logFile, const SessionTable::Limits& limits)
      : log(std::move(logFile)), sessions(limits) {}

  std::shared_ptr<Log> log;
  SessionTable sessions;
};

// Registers the classes of this server's components and offers those that a peer may create.
void registerClasses(const std::shared_ptr<Application>& application);

}  // namespace aps
