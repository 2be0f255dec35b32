#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "jobs/num_copies.h"
#include "jobs/spool_file.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "monitor/job_name.h"
#include "monitor/job_start.h"
#include "monitor/port_call.h"
#include "monitor/queue_access.h"
#include "session/port_monitor_server.h"

#include <winspool.h>

#include <cwchar>
#include <optional>

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
  port.job->failure.note(JobFault::kAbandoned, L"The spooler began another job before this one had ended.");
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
  job.trail.add(L"started: \"%.60s\", %d copies, data type %.20s", job.documentName.wide(), job.copies,
                job.dataType.wide());
}

// The caller has the connection whatever fails after it was made.
void connectJob(Operation& operation, tagPort& port, CS_RCPtr<CS_Connection>& connection) {
  port.job->failure.expect(JobFault::kServer);
  connection = PortMonitorServer::connectToLocalhost();
  if (!connection) operation.fail(corvane::kLevelFailure, L"Failed to connect to APS.");
  // Of a port that was deleted meanwhile there is nothing left to print to.
  if (!PortRecords::instance().setConnection(port, connection)) throw CS_Exception(corvane::kBadArgument, nullptr);
  port.job->trail.add(L"connected to the application server");
}

// Of a job that did not start: takes it out of the queue and off the port. What is told of it, when there was one.
std::optional<mg::JobAccount> giveUpJob(Operation& operation, tagPort& port, const DOC_INFO_1W* document) {
  if (port.job == nullptr) return std::nullopt;
  port.job->failure.note(operation.errorRecord());
  const bool named = document != nullptr && document->pDocName != nullptr;
  const DWORD queueError = mg::deleteQueuedJob(operation, port, named ? document->pDocName : L"null");
  std::optional<mg::JobAccount> failed(*port.job);
  failed->queueError = queueError;
  delete port.job;
  port.job = nullptr;
  return failed;
}

}  // namespace

BOOL WINAPI MGStartDocPort(HANDLE handle, LPWSTR pPrinterName, DWORD JobId, DWORD, LPBYTE pDocInfo) {
  CS_TraceEntry trace(L"MGStartDocPort (pPrinterName = %s, JobId = %d)", pPrinterName, JobId);
  Operation operation(L"Stack Trace: MgPrintMon - MGStartDocPort()");
  mg::PortCall call;
  tagPort* port = nullptr;
  const DOC_INFO_1W* document = nullptr;
  CS_RCPtr<CS_Connection> connection;
  std::optional<mg::JobAccount> failed;
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
