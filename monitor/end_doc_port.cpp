#include "corvane/connection.h"
#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "jobs/convert_job.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "monitor/port_call.h"
#include "monitor/queue_access.h"
#include "session/print_server.h"

#include <winspool.h>

#include <optional>

namespace {

constexpr int kPrintedOtherwise = 1;

// The job is destroyed; the stream stays until the next job replaces it.
mg::JobAccount vacatePort(tagPort& port) {
  mg::JobAccount account(*port.job);
  delete port.job;
  port.job = nullptr;
  port.secondName[0] = L'\0';
  port.flags &= ~kPortHasDocument;
  return account;
}

}  // namespace

BOOL WINAPI MGEndDocPort(HANDLE handle) {
  CS_TraceEntry trace(L"MGEndDocPort ()");
  Operation operation(L"Stack Trace: MgPrintMon - MGEndDocPort()");
  int converted = 0;
  int ended = 0;
  HANDLE printer = nullptr;
  std::optional<mg::JobAccount> job;
  mg::PortCall call;
  tagPort* entered = nullptr;
  operation.run([&] {
    tagPort& port = call.enter(handle);
    entered = &port;
    if (!port.printServer) throw CS_Exception(corvane::kMissingObject, nullptr);
    if (port.job == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
    if (protocol::isCollected(port.job->settings)) {
      converted = ConvertJob(port.job, port.printerName);
      if (converted != kPrintedOtherwise) port.printServer->WriteJob(port.job, nullptr, 0);
    }
    if (!port.printServer) operation.fail(corvane::kLevelException, L"Failed to use print server.");
    const CS_RCPtr<PrintServer> stream(port.printServer.get());
    const CS_RCPtr<CS_Component> owner = stream->getRootOwner();
    if (converted != kPrintedOtherwise) ended = stream->EndJob(port.job);
    job.emplace(vacatePort(port));
    job->queueError = mg::markQueuedJobSent(operation, port, printer);
    const CS_RCPtr<CS_Connection> connection(dynamic_cast<CS_Connection*>(owner.get()));
    mg::tellEndedJob(port, *job, converted == kPrintedOtherwise, ended, connection.get());
    PortRecords::instance().setConnection(port, nullptr);
    CS_Connection::destroy(connection, true);
  });
  // Told already unless something unexpected came in between.
  if (job) mg::tellEndedJob(*entered, *job, converted == kPrintedOtherwise, ended, nullptr);
  // Closed whether it was opened or not; the spooler takes a null handle for what it is.
  ClosePrinter(printer);
  return ended > 0 ? TRUE : FALSE;
}
