#include "corvane/component_server.h"
#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "jobs/leftover_files.h"
#include "monitor/monitor_table.h"
#include "ports/port_list.h"
#include "protocol/names.h"
#include "session/held_port.h"
#include "session/port_monitor_server.h"
#include "session/port_monitor_server_class.h"
#include "session/print_server_class.h"

#include <new>

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
