#include "admin/spooler/wine_spooler.h"

#include "admin/base/failure.h"
#include "admin/base/places.h"
#include "admin/base/registry_value.h"
#include "admin/spooler/monitor_module.h"

#include <winspool.h>

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace admin {
namespace {

// A port with a longer name exists, and Wine's spooler prints nothing on it.
constexpr std::size_t kLongestKeyName = 255;

// The key of all ports, and the key of one port.
std::wstring portsKey() {
  return std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\") + kMonitorName + L"\\Ports";
}
std::wstring portKey(const std::wstring& port) {
  return portsKey() + L"\\" + port;
}

}  // namespace

bool isWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

void registerPortInWine(const std::wstring& port) {
  if (port.size() > kLongestKeyName) return;
  createKey(portKey(port));
}

void forgetPortInWine(const std::wstring& port) {
  if (port.size() > kLongestKeyName) return;
  deleteKeyTree(portKey(port));
  if (keyExists(portsKey()) && isKeyEmpty(portsKey())) deleteKey(portsKey());
}

DWORD askMonitorInWine(const wchar_t* command, BYTE* data, DWORD size) {
  DWORD needed = 0;
  return MonitorModule::get().operations().pfnXcvDataPort(nullptr, command, data, size, nullptr, 0, &needed);
}

mg::ObjectHandle takeJobNumberInWine(HANDLE printer) {
  for (DWORD number = 1;; ++number) {
    // The name is that of the tests' printing program, which does the same.
    mg::ObjectHandle mutex(CreateMutexW(nullptr, FALSE, fmt::format(L"mgspool job {}", number).c_str()));
    require(static_cast<bool>(mutex), "the mutex of a job number cannot be made");
    // A process that was killed has abandoned its number.
    if (WaitForSingleObject(mutex.get(), 0) != WAIT_TIMEOUT) return mutex;
    BYTE room[sizeof(ADDJOB_INFO_1W) + MAX_PATH * sizeof(wchar_t)];
    DWORD needed = 0;
    require(AddJobW(printer, 1, room, sizeof room, &needed), "a job number in use cannot be passed over");
  }
}

void releaseModule() {
  if (!isWine()) return;
  while (const HMODULE module = GetModuleHandleW(kModuleFile)) {
    if (!FreeLibrary(module)) return;
  }
}

}  // namespace admin
