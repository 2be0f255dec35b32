#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "monitor/entries.h"
#include "monitor/port_call.h"
#include "ports/port_list.h"
#include "session/held_port.h"
#include "util/synchronized.h"

BOOL WINAPI MGEnumPorts(HANDLE, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
                        LPDWORD pcReturned) {
  CS_TraceEntry trace(L"MGEnumPorts (pName = %s)", pName);
  Operation operation(L"Stack Trace: MgPrintMon - MGEnumPorts()");
  BOOL result = FALSE;
  DWORD lastError = 0;
  operation.run([&] {
    result = static_cast<BOOL>(mg::portList().EnumPorts(pName, Level, pPorts, cbBuf, pcbNeeded, pcReturned));
    lastError = GetLastError();
  });
  if (!operation.succeeded()) SetLastError(lastError);
  return result;
}

BOOL WINAPI MGOpenPort(HANDLE, LPWSTR pName, PHANDLE pHandle) {
  CS_TraceEntry trace(L"MGOpenPort (pName = %s)", pName);
  Operation operation(L"Stack Trace: MgPrintMon - MGOpenPort()");
  operation.run([&] {
    CPortList& list = mg::portList();
    if (pName == nullptr || pHandle == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    const mg::HeldPort port(list, pName);
    if (!port) operation.fail(corvane::kLevelFailure, L"MgPrintMon - MGOpenPort: port not found");
    *pHandle = port.get();
    port->flags |= kPortIsOpen;
    PortRecords::instance().handleOpened(*port.get());
  });
  return operation.succeeded() ? TRUE : FALSE;
}

BOOL WINAPI MGClosePort(HANDLE handle) {
  CS_TraceEntry trace(L"MGClosePort ()");
  Operation operation(L"Stack Trace: MgPrintMon - MGClosePort()");
  mg::PortCall call;
  operation.run([&] {
    tagPort& port = call.enter(handle);
    const Synchronized guard(*port.lock);
    port.flags &= ~kPortIsOpen;
  });
  // Also that of a port which was deleted meanwhile: only then may its address be another port's.
  PortRecords::instance().handleClosed(handle);
  return operation.succeeded() ? TRUE : FALSE;
}
