#include "tests/support/spooler/monitor_table.h"

#include "tests/support/spooler/system_failure.h"

namespace mg::support {
namespace {

using Initialize = MONITOR2*(WINAPI*)(MONITORINIT*, HANDLE*);

MonitorTable load() {
  const HMODULE module = LoadLibraryW(L"MgPrintMon.dll");
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
  MonitorTable table;
  table.operations = initialize(&init, &table.monitor);
  require(table.operations != nullptr, "InitializePrintMonitor2 failed");
  return table;
}

}  // namespace

const MonitorTable& loadMonitor() {
  static const MonitorTable table = load();
  return table;
}

}  // namespace mg::support
