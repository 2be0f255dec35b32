#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "jobs/temporary_files.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "protocol/names.h"
#include "session/port_monitor_server.h"
#include "session/print_server.h"

#include <cstddef>
#include <new>

namespace {

// What comes behind the 19 slots belongs to newer spoolers and is not ours to fill.
constexpr DWORD kTableSize = offsetof(MONITOR2, pfnNotifyUsedPorts);
static_assert(kTableSize == 160 && offsetof(MONITOR2, pfnEnumPorts) == 8);

constexpr MONITOR2 makeTable() {
  MONITOR2 table{};
  table.cbSize = kTableSize;
  table.pfnEnumPorts = MGEnumPorts;
  table.pfnOpenPort = MGOpenPort;
  table.pfnOpenPortEx = nullptr;
  table.pfnStartDocPort = MGStartDocPort;
  table.pfnWritePort = MGWritePort;
  table.pfnReadPort = MGReadPort;
  table.pfnEndDocPort = MGEndDocPort;
  table.pfnClosePort = MGClosePort;
  table.pfnAddPort = MGAddPort;
  table.pfnAddPortEx = MGAddPortEx;
  table.pfnConfigurePort = MGConfigurePort;
  table.pfnDeletePort = MGDeletePort;
  table.pfnGetPrinterDataFromPort = nullptr;
  table.pfnSetPortTimeOuts = MGSetPortTimeOuts;
  table.pfnXcvOpenPort = MGXcvOpenPort;
  table.pfnXcvDataPort = MGXcvDataPort;
  table.pfnXcvClosePort = MGXcvClosePort;
  table.pfnShutdown = MGShutdown;
  table.pfnSendRecvBidiDataFromPort = nullptr;
  return table;
}

}  // namespace

constinit const MONITOR2 g_monitorTable = makeTable();

namespace {

constexpr wchar_t kMonitorName[] = L"Client Printer Port";

void bringUp(Operation& operation) {
  if (!PortMonitorServer::initialize()) {
    operation.fail(corvane::kLevelFailure, L"Failed to initialize the PortMonitorServer");
  }
  // The spooler may initialise the monitor again: classes registered before are replaced for new components.
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(protocol::kPortMonitorServerClass,
                        new (std::nothrow) PortMonitorServerClass(protocol::kVersion));
  server->registerClass(protocol::kPrintServerClass, new (std::nothrow) PrintServerClass(protocol::kVersion));

  // A list of an earlier initialisation is replaced but not freed, because its ports may be in use.
  CPortList* list = new (std::nothrow) CPortList(kMonitorName, kMonitorName);
  CPortList::setInstance(list);
  if (list == nullptr) {
    [[maybe_unused]] const CS_Exception unthrown(corvane::kAllocationFailed, nullptr);
  }
  mg::portList().Load();
}

}  // namespace

// What the spooler looks up and calls after it has loaded the module. Null, with the last error ERROR_BAD_ENVIRONMENT
// and the reason recorded, when the monitor cannot be brought up.
LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT init, PHANDLE handle) {
  if (!CS_ComponentServer::initialize(0, 0)) {
    SetLastError(ERROR_BAD_ENVIRONMENT);
    return nullptr;
  }
  Operation operation(L"Stack Trace: MgPrintMon - InitializePrintMonitor2()");
  bool succeeded = false;
  operation.run([&] {
    bringUp(operation);
    succeeded = true;
  });
  LPMONITOR2 table = nullptr;
  if (succeeded) {
    table = const_cast<LPMONITOR2>(&g_monitorTable);
    mg::removeLeftoverFiles();
  } else {
    SetLastError(ERROR_BAD_ENVIRONMENT);
  }
  // The spooler's own structure serves as the handle; no entry ever reads it.
  if (handle != nullptr) *handle = init;
  return table;
}
