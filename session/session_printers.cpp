#include "session/session_printers.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"

namespace {

using PrinterNames = TObjectMap<UTL_String, void*>;

constexpr std::size_t kBuckets = 20;

void fillCache(Operation& operation, tagPort& port, PortMonitorServer& server, unsigned int sessionId) {
  // Kept even when the server then refuses: it is asked once, and a session without printers is the answer until the
  // port is removed.
  port.cachedPrinters = new PrinterNames(kBuckets);
  if (!server.GetPrinterList(sessionId, port.cachedPrinters)) {
    operation.fail(corvane::kLevelFailure, L"Failed to get the list of cached printers.");
  }
}

void copyNames(const PrinterNames& from, PrinterNames& to) {
  for (const auto& [name, mark] : from) {
    if (!to.insert(name, mark)) throw CS_Exception(corvane::kAllocationFailed, nullptr);
  }
}

}  // namespace

extern "C" BOOL WINAPI GetCachedPrinterList(unsigned int sessionId, void** list) {
  CS_TraceEntry trace(L"GetCachedPrinterList (sessionId = %d)", sessionId);
  Operation operation(nullptr);
  BOOL result = FALSE;
  operation.run([&] {
    if (sessionId == 0 || list == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    *list = nullptr;
    auto* names = new PrinterNames(kBuckets);
    *list = names;
    const mg::SessionPortName portName(sessionId);
    const CS_RCPtr<PortMonitorServer> server = PortMonitorServer::getInstance();
    const mg::HeldPort port(mg::portList(), portName.text);
    if (!port) return;
    if (port->cachedPrinters == nullptr) fillCache(operation, *port.get(), *server, sessionId);
    copyNames(*port->cachedPrinters, *names);
    result = TRUE;
  });
  return result;
}

extern "C" void WINAPI ReleaseCachedPrinterList(void** list) {
  CS_TraceEntry trace(L"ReleaseCachedPrinterList()");
  if (list == nullptr || *list == nullptr) return;
  try {
    auto* names = static_cast<PrinterNames*>(*list);
    names->clear();
    delete names;
  } catch (...) {
    // The caller can do nothing about it and must not see the list again.
  }
  *list = nullptr;
}

namespace {

constexpr DWORD kFreshMilliseconds = 500;

// A tick count that has wrapped around makes the list old.
bool isFresh(const tagPort& port, DWORD now) {
  return port.cachedPrinters != nullptr && now >= port.tickCount && now - port.tickCount < kFreshMilliseconds;
}

BOOL showFromCache(const tagPort& port, const UTL_String& printer) {
  return port.listRequestSucceeded == 0 || port.cachedPrinters->find(printer) ? TRUE : FALSE;
}

BOOL showFromServer(tagPort& port, unsigned int sessionId, const UTL_String& printer) {
  delete port.cachedPrinters;
  port.cachedPrinters = nullptr;
  port.cachedPrinters = new PrinterNames(kBuckets);
  const CS_RCPtr<PortMonitorServer> server = PortMonitorServer::getInstance();
  const bool told = server->GetPrinterList(sessionId, port.cachedPrinters);
  const BOOL result = !told || port.cachedPrinters->find(printer) ? TRUE : FALSE;
  port.listRequestSucceeded = told ? 1 : 0;
  port.tickCount = GetTickCount();
  return result;
}

}  // namespace

extern "C" BOOL WINAPI ShowPrinter(unsigned int sessionId, const wchar_t* printerName) {
  CS_TraceEntry trace(L"ShowPrinter (sessionId = %d, printerName = %s)", sessionId, printerName);
  Operation operation(L"Stack Trace: MgPrintMon - ShowPrinter()");
  BOOL result = FALSE;
  operation.run([&] {
    if (printerName == nullptr || sessionId == 0) throw CS_Exception(corvane::kBadArgument, nullptr);
    const mg::SessionPortName portName(sessionId);
    const mg::HeldPort port(mg::portList(), portName.text);
    if (!port) return;
    const UTL_String printer(printerName);
    result = isFresh(*port.get(), GetTickCount()) ? showFromCache(*port.get(), printer)
                                                  : showFromServer(*port.get(), sessionId, printer);
  });
  return result;
}
