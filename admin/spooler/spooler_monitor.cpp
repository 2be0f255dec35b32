#include "admin/spooler/spooler_monitor.h"

#include "admin/base/failure.h"
#include "admin/base/places.h"
#include "admin/base/registry_value.h"
#include "admin/spooler/spooler_port.h"

#include <windows.h>
#include <winspool.h>

#include <string>

namespace admin {
namespace {

const std::wstring kMonitorKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\") + kMonitorName;

}  // namespace

bool isMonitorRegistered() {
  try {
    const SpoolerList<MONITOR_INFO_2W> monitors("the print monitors cannot be listed",
                                                [](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
                                                  return EnumMonitorsW(nullptr, 2, buffer, size, needed, count);
                                                });
    for (const MONITOR_INFO_2W& monitor : monitors) {
      if (std::wstring(monitor.pName) == kMonitorName) return true;
    }
    return false;
  } catch (const SystemFailure& failure) {
    if (failure.error() != RPC_S_SERVER_UNAVAILABLE) throw;
    return readValue(kMonitorKey, L"Driver").has_value();
  }
}

void registerMonitor() {
  std::wstring name = kMonitorName;
  std::wstring environment = kEnvironment;
  std::wstring file = kModuleFile;
  MONITOR_INFO_2W information = {name.data(), environment.data(), file.data()};
  if (AddMonitorW(nullptr, 2, reinterpret_cast<BYTE*>(&information))) return;
  const DWORD error = GetLastError();
  if (error == ERROR_PRINT_MONITOR_ALREADY_INSTALLED || error == ERROR_ALREADY_EXISTS) return;
  throw SystemFailure("the spooler does not take the print monitor", error);
}

void unregisterMonitor() {
  std::wstring name = kMonitorName;
  std::wstring environment = kEnvironment;
  if (DeleteMonitorW(nullptr, environment.data(), name.data())) return;
  const DWORD error = GetLastError();
  if (error == ERROR_UNKNOWN_PRINT_MONITOR) return;
  throw SystemFailure("the print monitor cannot be taken from the spooler", error);
}

}  // namespace admin
