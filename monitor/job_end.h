#pragma once

#include "corvane/components/connection.h"
#include "ports/tag_port.h"
#include "session/job_failure.h"
#include "session/job_trail.h"
#include "util/utl_string.h"

#include <windows.h>
#include <winspool.h>

#include <cstdint>

class ClientPrintJob;

namespace mg {

// What is told of a job that its port has destroyed by then. Made from the job, which gives its document's name away;
// needs no memory of its own.
struct JobAccount {
  explicit JobAccount(ClientPrintJob& job) noexcept;

  UTL_String documentName;
  bool isConverted;
  std::int64_t bytesTaken;
  std::int32_t bytesSent;
  const wchar_t* remark;  // static storage, may be null
  JobFailure failure;
  JobTrail trail;
  bool isTold;
  DWORD queueError = ERROR_SUCCESS;  // with which the spooler refused to act on the job in its queue
};

// Every job that the spooler started is told of once, as a notice of kind "job" to the default program monitor, when it
// is known how it ended. Where that monitor knows no way to the application server, because the module's own component
// was never needed, the notice goes there on the job's own connection; so it is told before that is ended. A failure
// is also an entry in the event log, and the lines of the job's trail follow in this process's own log.
//
// None of these throws, records anything, or changes the thread's last error. Without memory the notice is shorter. No
// lock may be held by their callers: the notice may travel. What fails on a port that was deleted meanwhile has failed
// for that reason, whatever else was noted.

// A job that could not be started, and that the port has destroyed already. The job and the connection may be null.
void tellFailedStart(const tagPort& port, const wchar_t* printerName, DWORD jobId, const DOC_INFO_1W* document,
                     JobAccount* job, CS_Connection* connection) noexcept;

// The port's job, which has failed for the cause that it holds. Nothing when the port has none. The error is that with
// which the spooler refused to delete the job.
void tellFailedJob(const tagPort& port, DWORD queueError = ERROR_SUCCESS) noexcept;

// The job, if there is one, of a port that was deleted and that no call works on any more: it is told as failed, its
// collected data are removed, and it is freed. Its connection is the caller's to end.
void endJobOfDeletedPort(tagPort& port) noexcept;

// A job that came to its end and that the port has destroyed already: shown in the session, or sent and answered by the
// print client with that number.
void tellEndedJob(const tagPort& port, JobAccount& job, bool shown, int answer, CS_Connection* connection) noexcept;

// The name under which a job travels and its files are found: the printer's name with every character that a file name
// cannot have, and "@" and "+", replaced by "-", then " - Job #" and the job's number. "\\srv\HP+1" with job 17 gives
// "--srv-HP-1 - Job #17". The printer's name is shorter than kPortNameSize characters.
UTL_String buildJobName(const wchar_t* printerName, DWORD jobId);

}  // namespace mg
