#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "jobs/conversion.h"
#include "jobs/num_copies.h"
#include "jobs/spool_file.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "monitor/job_start.h"
#include "monitor/port_call.h"
#include "monitor/queue_access.h"
#include "session/port_monitor_server.h"
#include "session/print_server.h"

#include <winspool.h>

#include <cwchar>
#include <memory>
#include <optional>
#include <utility>

namespace {

void requireArguments(const wchar_t* printerName, const void* document) {
  if (printerName == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
  if (document == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
  if (wcsnlen(printerName, kPortNameSize) == kPortNameSize) {
    throw CS_Exception(corvane::kBadArgument, nullptr);
  }
}

// The spooler gave up an earlier job without ending it: its client is waiting for data that will not come.
void abandonJob(tagPort& port) {
  if (port.job == nullptr) return;
  port.job->report.fail(JobFault::kAbandoned, L"The spooler began another job before this one had ended.");
  mg::tellFailedJob(port);
  if (port.printServer) {
    const CS_RCPtr<CS_Component> owner = port.printServer->getRootOwner();
    CS_Connection::destroy(CS_RCPtr<CS_Connection>(dynamic_cast<CS_Connection*>(owner.get())), true);
  }
  discardCollectedData(*port.job);
  delete port.job;
  port.job = nullptr;
}

void occupyPort(tagPort& port, const wchar_t* printerName, DWORD jobId) {
  port.flags |= kPortHasDocument;
  port.jobId = jobId;
  std::wcsncpy(port.printerName, printerName, kPortNameSize);
}

void vacatePort(tagPort& port) {
  port.flags &= ~kPortHasDocument;
  port.jobId = 0;
  port.printerName[0] = L'\0';
}

void describeJob(ClientPrintJob& job, const wchar_t* printerName, DWORD jobId, const DOC_INFO_1W& document) {
  job.jobName = mg::buildJobName(printerName, jobId);
  job.documentName = document.pDocName;
  job.dataType = document.pDatatype;
  job.copies = GetNumCopies(printerName, jobId);
  job.report.begin(JobFault::kServer, L"started: \"%.60s\", %d copies, data type %.20s", job.documentName.wide(),
                   job.copies, job.dataType.wide());
}

// The caller has the connection whatever fails after it was made.
void connectJob(Operation& operation, tagPort& port, CS_RCPtr<CS_Connection>& connection) {
  connection = PortMonitorServer::connectToLocalhost();
  if (!connection) operation.fail(corvane::kLevelFailure, L"Failed to connect to APS.");
  // Of a port that was deleted meanwhile there is nothing left to print to.
  if (!PortRecords::instance().setConnection(port, connection)) throw CS_Exception(corvane::kBadArgument, nullptr);
  port.job->report.begin(JobFault::kModule, L"connected to the application server");
}

// Destroys the port's job. Returns what is told of it.
JobReport destroyJob(tagPort& port) {
  const std::unique_ptr<ClientPrintJob> job(std::exchange(port.job, nullptr));
  return std::move(job->closeReport());
}

// Takes a job that did not start out of the queue and off the port. Returns what is told of it, when there was one.
std::optional<JobReport> giveUpJob(Operation& operation, tagPort& port, const DOC_INFO_1W* document) {
  if (port.job == nullptr) return std::nullopt;
  port.job->report.fail(operation.errorRecord());
  const bool named = document != nullptr && document->pDocName != nullptr;
  port.job->report.queueError = mg::deleteQueuedJob(operation, port, named ? document->pDocName : L"null");
  return destroyJob(port);
}

}  // namespace

BOOL WINAPI MGStartDocPort(HANDLE handle, LPWSTR pPrinterName, DWORD JobId, DWORD, LPBYTE pDocInfo) {
  CS_TraceEntry trace(L"MGStartDocPort (pPrinterName = %s, JobId = %d)", pPrinterName, JobId);
  Operation operation(L"Stack Trace: MgPrintMon - MGStartDocPort()");
  mg::PortCall call;
  tagPort* port = nullptr;
  const DOC_INFO_1W* document = nullptr;
  CS_RCPtr<CS_Connection> connection;
  std::optional<JobReport> failed;
  operation.run(
      [&] {
        tagPort& named = call.enter(handle);
        requireArguments(pPrinterName, pDocInfo);
        port = &named;
        abandonJob(*port);
        occupyPort(*port, pPrinterName, JobId);
        document = reinterpret_cast<const DOC_INFO_1W*>(pDocInfo);

        ClientPrintJob* job = port->job = new ClientPrintJob;
        describeJob(*job, pPrinterName, JobId, *document);
        connectJob(operation, *port, connection);
        port->printServer = mg::startJob(operation, *connection, *job, pPrinterName, JobId);
      },
      [&] {
        if (port == nullptr) return;
        failed = giveUpJob(operation, *port, document);
        vacatePort(*port);
      });
  if (operation.succeeded()) return TRUE;
  if (port != nullptr) {
    mg::tellFailedStart(*port, pPrinterName, JobId, document, failed ? &*failed : nullptr, connection.get());
  }
  // Not before the report, which may travel over a connection of its own, and the notice.
  if (port != nullptr) PortRecords::instance().setConnection(*port, nullptr);
  if (connection) CS_Connection::destroy(connection, true);
  return FALSE;
}

namespace {

// What a stream's signed length can tell.
constexpr DWORD kLargestWrite = 0x7FFFFFFF;

}  // namespace

BOOL WINAPI MGWritePort(HANDLE handle, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten) {
  CS_TraceEntry trace(L"MGWritePort ()");
  DWORD ignored;
  DWORD& written = pcbWritten != nullptr ? *pcbWritten : ignored;
  written = 0;
  Operation operation(L"Stack Trace: MgPrintMon - MGWritePort()");
  mg::PortCall call;
  tagPort* port = nullptr;
  operation.run(
      [&] {
        tagPort& named = call.enter(handle);
        if (pBuffer == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
        if (cbBuf == 0 || cbBuf > kLargestWrite) throw CS_Exception(corvane::kBadArgument, nullptr);
        if (!named.printServer) throw CS_Exception(corvane::kMissingObject, nullptr);
        // From here on the job itself is in trouble when something fails, not only the call.
        port = &named;
        if (port->printServer->WriteJob(port->job, pBuffer, static_cast<int>(cbBuf)) == 0) {
          operation.fail(corvane::kLevelFailure, L"Failed to send print job data");
        }
        written = cbBuf;
        port->job->report.bytesTaken += cbBuf;
      },
      [&] {
        if (port == nullptr || port->job == nullptr) return;
        port->job->report.fail(operation.errorRecord());
        port->job->report.queueError = mg::deleteQueuedJob(operation, *port, nullptr);
      });
  if (!operation.succeeded() && port != nullptr && port->job != nullptr) mg::tellFailedJob(*port);
  return operation.succeeded() ? TRUE : FALSE;
}

namespace {

constexpr int kPrintedOtherwise = 1;

}  // namespace

BOOL WINAPI MGEndDocPort(HANDLE handle) {
  CS_TraceEntry trace(L"MGEndDocPort ()");
  Operation operation(L"Stack Trace: MgPrintMon - MGEndDocPort()");
  int converted = 0;
  int ended = 0;
  HANDLE printer = nullptr;
  std::optional<JobReport> report;
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
    // The job is destroyed; the stream stays until the next job replaces it.
    report = destroyJob(port);
    port.secondName[0] = L'\0';
    port.flags &= ~kPortHasDocument;
    report->queueError = mg::markQueuedJobSent(operation, port, printer);
    const CS_RCPtr<CS_Connection> connection(dynamic_cast<CS_Connection*>(owner.get()));
    mg::tellEndedJob(port, *report, converted == kPrintedOtherwise, ended, connection.get());
    PortRecords::instance().setConnection(port, nullptr);
    CS_Connection::destroy(connection, true);
  });
  // Told already unless something unexpected came in between.
  if (report) mg::tellEndedJob(*entered, *report, converted == kPrintedOtherwise, ended, nullptr);
  // Closed whether it was opened or not; the spooler takes a null handle for what it is.
  ClosePrinter(printer);
  return ended > 0 ? TRUE : FALSE;
}
