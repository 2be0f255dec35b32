#pragma once

#include "util/win_handle.h"

#include <windows.h>

#include <string>

namespace admin {

// What Wine's spooler does not do for a print monitor, done in addition to it. None of this runs on Windows.
//
// - It finds the monitor of a port only through a registry key below the monitor's own; Windows asks the monitors.
// - It treats a monitor that opens its configuration channel without returning a handle, as ours does, as failed; so
//   the monitor's function table is called without the spooler, in this process.
// - It numbers the jobs of each process from 1 and names the spooled file by the number, so two processes that print at
//   the same time would read each other's document.
// - It lives inside each process that prints, and keeps a module loaded there.

bool isWine();
// Whether the spooler prints within the program that has called it.
inline bool spoolerPrintsHere() {
  return isWine();
}

// Makes and removes the key by which Wine's spooler finds the monitor of a port. Throws a SystemFailure.
void registerPortInWine(const std::wstring& port);
void forgetPortInWine(const std::wstring& port);

// A configuration request, directly to the monitor. Returns its result; throws a SystemFailure when the module cannot
// be loaded.
DWORD askMonitorInWine(const wchar_t* command, BYTE* data, DWORD size);

// Takes the first job number that no other process uses, and skips those before it; the number is in use until the
// handle is closed. To be called before the first document of a process. Throws a SystemFailure.
mg::ObjectHandle takeJobNumberInWine(HANDLE printer);

// Unloads the module from this process, so that its file can be deleted. Nothing of it may be used afterwards.
void releaseModule();

}  // namespace admin
