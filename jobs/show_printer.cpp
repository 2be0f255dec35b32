#include "jobs/show_printer.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "session/held_port.h"
#include "session/port_monitor_server.h"

namespace {

constexpr DWORD kFreshMilliseconds = 500;
constexpr std::size_t kBuckets = 20;

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
  port.cachedPrinters = new TObjectMap<UTL_String, void*>(kBuckets);
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
