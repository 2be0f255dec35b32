#include "session/cached_printer_list.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "session/held_port.h"
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
