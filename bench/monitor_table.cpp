#include "bench/monitor_table.h"

#include <cstring>

MonitorTable loadMonitorTable(const wchar_t* modulePath) {
  MonitorTable table;
  const HMODULE module = ::LoadLibraryW(modulePath);
  if (module == nullptr) return table;
  using Initialize = void*(WINAPI*)(void* init, HANDLE* handle);
  const auto initialize =
      reinterpret_cast<Initialize>(reinterpret_cast<void*>(::GetProcAddress(module, "InitializePrintMonitor2")));
  if (initialize == nullptr) return table;
  long long init[8] = {};
  HANDLE handle = nullptr;
  void* const* slots = static_cast<void* const*>(initialize(init, &handle));
  if (slots == nullptr) return table;
  // Slot 0 is the size; the slots after it are operations.
  const auto take = [&](int slot, auto& entry) { std::memcpy(&entry, &slots[slot], sizeof entry); };
  take(2, table.openPort);
  take(4, table.startDoc);
  take(5, table.write);
  take(7, table.endDoc);
  take(8, table.closePort);
  return table;
}
