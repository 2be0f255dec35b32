#pragma once

#include <string>

namespace admin {

// Sends a configuration request with a port's name to the monitor, through the spooler's channel for that. Throws a
// SystemFailure that begins with what was tried when the spooler or the monitor refuses it.
void sendToMonitor(const wchar_t* command, std::wstring port, const std::string& tried);

}  // namespace admin
