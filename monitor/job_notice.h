#pragma once

#include "corvane/records/program_monitor.h"
#include "session/job_failure.h"
#include "session/job_trail.h"

#include <windows.h>

#include <cstddef>
#include <mutex>
#include <vector>

namespace mg {

// The source under which the module writes to the system's event log, and its only event, an error whose text is the
// entry's one string. The installation registers the source; the module carries the event's text.
inline constexpr const wchar_t* kEventSource = L"MgPrintMon";
inline constexpr DWORD kJobFailedEvent = 0xC0000001;

// Writes one entry with that line. What fails here is not told anywhere, and the thread's last error stays.
void writeEvent(const wchar_t* line) noexcept;

// Notices of jobs that no application server has heard, as a rule because it had gone in the middle of the job: the
// next one that is there is told of them, so that the failure of a job is in its lists although it ended with the
// server before. One per process; any thread may use it. At most kMost of them, with texts of at most kMostText
// characters; the oldest makes room, and all of them stand in the module's own log anyway.
class KeptNotices {
 public:
  static constexpr std::size_t kMost = 32;
  static constexpr std::size_t kMostText = 512;  // of a value; the line is the module's own, and bounded

  // Never destroyed: jobs may end until the last moment of the process.
  static KeptNotices& instance();

  // Adds to the line when that was. Without memory for it the notice is only in the log.
  void keep(CS_Notice notice) noexcept;
  // Tells them, oldest first, and keeps them no more.
  void tellAll(CS_ProgramMonitor& monitor) noexcept;
  void clear() noexcept;

 private:
  std::mutex m_lock;  // guards what follows
  std::vector<CS_Notice> m_notices;
};

}  // namespace mg

class CS_Connection;

namespace mg {

// What is told of a job. The texts are never null and belong to the caller.
struct JobNotice {
  const wchar_t* result;  // "delivered", "shown" or "failed"
  const wchar_t* portName;
  const wchar_t* printerName;
  const wchar_t* document;
  DWORD jobId;
  long long bytes;                  // sent to the print client
  const JobFailure* failure;        // of a failed job, else null
  const JobTrail* trail;            // may be null
  DWORD queueError;                 // with which the spooler refused to delete the job, or to mark it as sent; else 0
  const wchar_t* remark = nullptr;  // of a delivered job: what else is to be told of it; may be null
};

// Tells it: notice, and for a failed job entry of the event log and trail. The connection is the job's, or null.
void tell(const JobNotice& job, CS_Connection* connection) noexcept;

}  // namespace mg
