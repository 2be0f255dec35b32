#pragma once

#include "admin/failure.h"
#include "admin/spooler_printer.h"

#include <string>
#include <vector>

namespace admin {

// The monitor's ports as the spooler of this machine has them. Everything throws a Failure.

// In the order in which the spooler lists them.
std::vector<std::wstring> monitorPorts();
bool hasPort(const std::wstring& name);

// Why a name cannot be a port's; empty when it can.
std::string portNameRefusal(const std::wstring& name);

// False when it is there already.
bool addPort(const std::wstring& name);
// False when it is not there. Printers that use it keep it from being deleted.
bool deletePort(const std::wstring& name);
// Why a port with these printers cannot be deleted, and what to do. One that has been deleted itself and waits for its
// last job is not to be removed once more.
Failure portInUse(const std::wstring& name, const std::vector<SpoolerPrinter>& users);

// "CPP" and the number of the session.
std::wstring sessionPort(unsigned session);

}  // namespace admin
