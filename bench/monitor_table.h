#pragma once

#include <windows.h>

// The entries of the monitor's table that a job needs, at their published places in MONITOR2.
struct MonitorTable {
  BOOL(WINAPI* openPort)(HANDLE monitor, LPWSTR name, PHANDLE port) = nullptr;
  BOOL(WINAPI* startDoc)(HANDLE port, LPWSTR printer, DWORD job, DWORD level, LPBYTE info) = nullptr;
  BOOL(WINAPI* write)(HANDLE port, LPBYTE data, DWORD size, LPDWORD written) = nullptr;
  BOOL(WINAPI* endDoc)(HANDLE port) = nullptr;
  BOOL(WINAPI* closePort)(HANDLE port) = nullptr;
};

// Loads the module and asks it for its table; all entries are null when that fails. The module stays loaded.
MonitorTable loadMonitorTable(const wchar_t* modulePath);
