#include "tests/sweeps/first_start.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/component_server.h"
#include "corvane/components/program_monitor_c.h"
#include "monitor/entries.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"

extern "C" LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT init, PHANDLE handle);

int firstStart(int nth) {
  const ImportSeams seams;
  MONITORINIT init{};
  HANDLE handle = nullptr;
  bool failed = false;
  {
    const FailingNew failing(nth);
    InitializePrintMonitor2(&init, &handle);
    failed = failing.hasFailed();
  }
  if (InitializePrintMonitor2(&init, &handle) != &g_monitorTable) return kStartFailed;
  for (const wchar_t* name : {CS_Bridge::m_className, CS_BridgeRouter::getClassName(), CS_ProgramMonitor_c::m_className,
                              L"Quillfern::NTR::PortMonitorServer", L"Quillfern::NTR::PrintServer"}) {
    if (CS_ComponentServer::getServer()->findClass(name) == nullptr) return kStartFailed;
  }
  return failed ? kStartedAfterFailure : kStartedUndisturbed;
}
