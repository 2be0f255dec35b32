#pragma once

#include "session/job_failure.h"
#include "session/job_trail.h"

#include <windows.h>

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
