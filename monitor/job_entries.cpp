#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "jobs/conversion.h"
#include "jobs/job_settings.h"
#include "jobs/spool_file.h"
#include "jobs/spooler_calls.h"
#include "jobs/temporary_files.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "ports/port_records.h"
#include "protocol/names.h"
#include "session/make_component.h"
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
  if (port.printServer) CS_Connection::destroy(port.printServer->getRootOwner()->getConnection(), true);
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
  mg::QueuedPages pages;
  job.copies = GetNumCopies(printerName, jobId, &pages);
  job.report.pages = pages.count;
  job.report.hasMorePages = pages.isGrowing;
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

CS_RCPtr<CS_Component> makeBridge(Operation& operation, CS_Connection& connection) {
  return mg::makeComponent(operation, connection,
                           {CS_Bridge::m_className, CS_BridgeRouter::getClassName(), corvane::kLevelFailure,
                            L"Failed to get the root owner's class factory", L"Failed to create bridge"});
}

CS_RCPtr<PortMonitorServer> makePortMonitor(Operation& operation, CS_Connection& connection) {
  auto server = mg::makeOwnComponent<PortMonitorServer>(operation, connection, mg::kPortMonitorServerKind);
  mg::startChannel(*server);
  return server;
}

CS_RCPtr<PrintServer> makePrintServer(Operation& operation, CS_Component& bridge) {
  auto server = mg::makeOwnComponent<PrintServer>(
      operation, bridge,
      {protocol::kPrintServerClass, protocol::kPrintClientClass, corvane::kLevelFailure,
       L"Failed to get the bridge's class factory", L"Failed to create the print server"});
  mg::startChannel(*server);
  return server;
}

// Announces a job over its own connection: asks for the client printer, settles how the job travels, attaches it to the
// printer's session, and starts its stream. Returns the stream, which keeps the connection alive. Throws CS_Exception,
// with the reason recorded on the operation, at the first step that fails.
CS_RCPtr<PrintServer> startJob(Operation& operation, CS_Connection& connection, ClientPrintJob& job,
                               const wchar_t* printerName, DWORD jobId) {
  const CS_RCPtr<CS_Component> bridge = makeBridge(operation, connection);
  const CS_RCPtr<PortMonitorServer> portMonitor = makePortMonitor(operation, connection);
  ClientPrinter printer;
  if (!portMonitor->GetPrinterInfo(printerName, printer)) {
    job.report.begin(connection.isConnected() ? JobFault::kPrinter : JobFault::kConnection);
    operation.fail(corvane::kLevelFailure,
                   L"Failed to get the printer's information: %s, print job #%d has failed to print.", printerName,
                   jobId);
  }
  job.report.add(L"the client printer is \"%s\", format %d", printer.printerName.wide(), printer.printerValue);
  ConfigurePrintJobSettings(&job, printer);
  if (!portMonitor->AttachPrintJobToSession(printerName, bridge.get())) {
    job.report.fail(connection.isConnected() ? JobFault::kAttach : JobFault::kConnection,
                    L"Failed to attach print job to session for %s", printerName);
    // The attach has recorded why.
    throw CS_Exception(CS_ProgramMonitor::getDefaultMonitor());
  }
  job.report.begin(JobFault::kStream, L"attached to the session, delivery mode %d",
                   job.settings[protocol::kDeliverySetting]);
  CS_RCPtr<PrintServer> stream = makePrintServer(operation, *bridge);
  stream->StartJob(&job);
  job.report.add(L"announced to the print client");
  return stream;
}

// Destroys the port's job and returns its report.
JobReport destroyJob(tagPort& port) {
  const std::unique_ptr<ClientPrintJob> job(std::exchange(port.job, nullptr));
  return std::move(job->closeReport());
}

// Takes a job that did not start out of the queue and off the port. Returns its report, if there was one.
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
  mg::PortCall call(mg::endJobOfDeletedPort);
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
        port->printServer = startJob(operation, *connection, *job, pPrinterName, JobId);
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
  // Only after the records and the notice, which may need the connection.
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
  mg::PortCall call(mg::endJobOfDeletedPort);
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
  mg::PortCall call(mg::endJobOfDeletedPort);
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
    const CS_RCPtr<CS_Connection> connection = stream->getRootOwner()->getConnection();
    if (converted != kPrintedOtherwise) ended = stream->EndJob(port.job);
    // The job is destroyed; the stream stays until the next job replaces it.
    report = destroyJob(port);
    port.secondName[0] = L'\0';
    port.flags &= ~kPortHasDocument;
    report->queueError = mg::markQueuedJobSent(operation, port, printer);
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
