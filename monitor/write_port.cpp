#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "monitor/port_call.h"
#include "monitor/queue_access.h"
#include "session/print_server.h"

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
  DWORD queueError = ERROR_SUCCESS;
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
        port->job->bytesTaken += cbBuf;
      },
      [&] {
        if (port == nullptr || port->job == nullptr) return;
        port->job->failure.note(operation.errorRecord());
        queueError = mg::deleteQueuedJob(operation, *port, nullptr);
      });
  if (!operation.succeeded() && port != nullptr && port->job != nullptr) mg::tellFailedJob(*port, queueError);
  return operation.succeeded() ? TRUE : FALSE;
}
