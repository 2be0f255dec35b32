#include "corvane/connection.h"
#include "corvane/operation.h"
#include "jobs/convert_job.h"
#include "monitor/entries.h"
#include "monitor/port_handle.h"
#include "monitor/queue_access.h"
#include "session/print_server.h"

#include <winspool.h>

namespace {

constexpr int kPrintedOtherwise = 1;

// The job is gone from the port afterwards; the stream stays until the next job replaces it.
void vacatePort(tagPort& port) {
  delete port.job;
  port.job = nullptr;
  port.secondName[0] = L'\0';
  port.flags &= ~kPortHasDocument;
}

void markSent(Operation& operation, tagPort& port, HANDLE& printer) {
  printer = mg::openQueue(port);
  if (printer == nullptr) operation.note(corvane::kLevelCleanupNote, L"failed to access the printer queue");
  if (!mg::controlJob(printer, port, JOB_CONTROL_SENT_TO_PRINTER)) {
    operation.note(corvane::kLevelCleanupNote, L"failed to complete print job");
  }
}

}  // namespace

BOOL WINAPI MGEndDocPort(HANDLE handle) {
  CS_TraceEntry trace(L"MGEndDocPort ()");
  Operation operation(L"Stack Trace: MgPrintMon - MGEndDocPort()");
  int converted = 0;
  int ended = 0;
  HANDLE printer = nullptr;
  operation.run([&] {
    tagPort& port = mg::portOf(handle);
    if (!port.printServer) throw CS_Exception(corvane::kMissingObject, nullptr);
    if (port.job == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
    if (port.job->settings[ClientPrintJob::kDeliveryMode] == ClientPrintJob::kConverted) {
      converted = ConvertJob(port.job, port.printerName);
      if (converted != kPrintedOtherwise) {
        static_cast<PrintServer&>(*port.printServer).WriteJob(port.job, nullptr, 0);
      }
    }
    if (!port.printServer) operation.fail(corvane::kLevelException, L"Failed to use print server.");
    const CS_RCPtr<CS_Component> stream = port.printServer;
    const CS_RCPtr<CS_Component> owner = stream->getRootOwner();
    if (converted != kPrintedOtherwise) ended = static_cast<PrintServer&>(*stream).EndJob(port.job);
    vacatePort(port);
    markSent(operation, port, printer);
    CS_Connection::destroy(CS_RCPtr<CS_Connection>(dynamic_cast<CS_Connection*>(owner.get())), true);
  });
  // Closed whether it was opened or not; the spooler takes a null handle for what it is.
  ClosePrinter(printer);
  return ended > 0 ? TRUE : FALSE;
}
