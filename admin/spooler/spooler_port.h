#pragma once

#include "admin/base/failure.h"
#include "admin/spooler/spooler_printer.h"

#include <string>
#include <vector>

namespace admin {

// Sends a configuration request with a port's name to the monitor, through the spooler's configuration channel. When
// the spooler or the monitor refuses it, throws a SystemFailure that begins with `tried`.
void sendToMonitor(const wchar_t* command, std::wstring port, const std::string& tried);

// The monitor's ports in the spooler of this machine. Every function throws a Failure.

// In the order in which the spooler lists them.
std::vector<std::wstring> monitorPorts();
bool hasPort(const std::wstring& name);

// Why a name cannot be the name of a port; empty when it can.
std::string portNameRefusal(const std::wstring& name);

// False when it already exists.
bool addPort(const std::wstring& name);
// False when it does not exist. A port that printers use is not deleted.
bool deletePort(const std::wstring& name);
// Why a port with these printers cannot be deleted, and the remedy. A printer that is already deleted and waits for its
// last job need not be removed again.
Failure portInUse(const std::wstring& name, const std::vector<SpoolerPrinter>& users);

// "CPP" and the number of the session.
std::wstring sessionPort(unsigned session);

}  // namespace admin
