#pragma once

namespace admin {

// The print monitor's registration with the spooler of this machine.

// Also when the spooler is not running: then the registry says it.
bool isMonitorRegistered();
// Throws a SystemFailure; fine when it is registered already.
void registerMonitor();
// Throws a SystemFailure; fine when it is not registered.
void unregisterMonitor();

}  // namespace admin
