#include "admin/wine_spooler.h"

#include "admin/places.h"
#include "admin/registry_value.h"
#include "admin/system_failure.h"
#include "util/win_handle.h"

// winsplp.h wants the declarations of winspool.h first.
#include <winsplp.h>
#include <winspool.h>

namespace admin {
namespace {

using Initialize = MONITOR2*(WINAPI*)(MONITORINIT*, HANDLE*);

// The key of all ports, and that of one.
std::wstring portsKey() {
  return std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\") + kMonitorName + L"\\Ports";
}
std::wstring portKey(const std::wstring& port) {
  return portsKey() + L"\\" + port;
}

MONITOR2* monitorTable() {
  static MONITOR2* table = nullptr;
  if (table != nullptr) return table;
  const HMODULE module = LoadLibraryW(kModuleFile);
  require(module != nullptr, "MgPrintMon.dll cannot be loaded");
  const auto initialize =
      reinterpret_cast<Initialize>(reinterpret_cast<void*>(GetProcAddress(module, "InitializePrintMonitor2")));
  require(initialize != nullptr, "MgPrintMon.dll has no InitializePrintMonitor2");
  // The module gives the address of this record back as its handle, so it must live as long as the module.
  static MONITORREG registry = {};
  static MONITORINIT init = {};
  registry.cbSize = sizeof registry;
  init.cbSize = sizeof init;
  init.pMonitorReg = &registry;
  init.bLocal = TRUE;
  HANDLE monitor = nullptr;
  table = initialize(&init, &monitor);
  require(table != nullptr, "MgPrintMon.dll cannot be initialised");
  return table;
}

}  // namespace

bool isWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

void registerPortInWine(const std::wstring& port) {
  createKey(portKey(port));
}

void forgetPortInWine(const std::wstring& port) {
  deleteKeyTree(portKey(port));
  if (keyExists(portsKey()) && isKeyEmpty(portsKey())) deleteKey(portsKey());
}

DWORD askMonitorInWine(const wchar_t* command, BYTE* data, DWORD size) {
  DWORD needed = 0;
  return monitorTable()->pfnXcvDataPort(nullptr, command, data, size, nullptr, 0, &needed);
}

void releaseModule() {
  if (!isWine()) return;
  while (const HMODULE module = GetModuleHandleW(kModuleFile)) {
    if (!FreeLibrary(module)) return;
  }
}

}  // namespace admin
