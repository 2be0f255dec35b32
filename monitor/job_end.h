#pragma once

#include "corvane/components/connection.h"
#include "ports/port_records.h"
#include "session/job_report.h"

#include <windows.h>
#include <winspool.h>

namespace mg {

// The only event that the module writes to the system's event log: an error whose text is the entry's one string. The
// module carries the event's text (events.mc).
inline constexpr DWORD kJobFailedEvent = 0xC0000001;

// These functions report how a job ended, once for every job that the spooler started: as a notice of kind "job" to the
// default program monitor. Where that monitor has no connection to the application server, because the module's own
// component was never needed, the notice takes the job's own connection, so it is sent before that one is ended. A
// failure is also an entry in the event log, and the lines of the job's trail follow in this process's own log.
//
// None of them throws, records anything, or changes the thread's last error. Without memory the notice is shorter.
// Callers hold no lock: the notice may go over the network. A job that fails on a port that was deleted meanwhile is
// reported as failed for that reason, whatever other cause it has.

// A job that could not be started, and that the port has destroyed already. Its report is null when there was no memory
// even for the job; the connection may be null.
void tellFailedStart(const tagPort& port, const wchar_t* printerName, DWORD jobId, const DOC_INFO_1W* document,
                     JobReport* report, CS_Connection* connection) noexcept;

// The port's job, which has failed for the cause that it holds. Nothing when the port has none.
void tellFailedJob(const tagPort& port) noexcept;

// The job, if there is one, of a port that was deleted and that no call works on any more: it is told as failed, its
// collected data are removed, and it is freed. Its connection is the caller's to end.
void endJobOfDeletedPort(tagPort& port) noexcept;

// A job that came to its end and that the port has destroyed already: shown in the session, or sent and answered by the
// print client with that number.
void tellEndedJob(const tagPort& port, JobReport& report, bool shown, int answer, CS_Connection* connection) noexcept;

}  // namespace mg
