#pragma once

#include <windows.h>
#include <winspool.h>
// winsplp.h wants the declarations of winspool.h first.
#include <winsplp.h>

namespace mg::support {

// The operations of MgPrintMon.dll as a spooler gets them, with the handle to pass to those that want one.
struct MonitorTable {
  MONITOR2* operations = nullptr;
  HANDLE monitor = nullptr;
};

// Loads MgPrintMon.dll and initialises it, as a spooler does once per process; every call gives the same table. The
// module stays loaded. Throws a SystemFailure. Safe from any thread.
const MonitorTable& loadMonitor();

}  // namespace mg::support
