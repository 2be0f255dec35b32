#pragma once

#include "corvane/records/program_monitor.h"
#include "util/utl_string.h"

#include <windows.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

// What was being done when a job failed. It decides what is advised.
enum class JobFault {
  kUnknown,
  kServer,          // reaching the application server
  kModule,          // making the module's own components
  kPrinter,         // asking which client printer the job is for
  kAttach,          // attaching the job to the session
  kStream,          // making the stream to the print client
  kConnection,      // sending, or waiting for an answer
  kCollect,         // collecting the data of a job to be converted
  kRootPath,        // finding the converter
  kConverterStart,  // starting it
  kConversion,      // converting
  kNotepad,         // having a text shown in the session
  kClientDisk,      // the print client's own disk
  kClient,          // anything else at the print client
  kAbandoned,       // the spooler began another job without ending this one
  kPortDeleted,
};

// One sentence about what to do after such a failure. Never null, static storage.
const wchar_t* remedyFor(JobFault fault);

// What there is to say about one job when it has ended: why it failed, and what happened to it until then. Part of the
// job, filled on the job's way, and read once by monitor/job_end.h, for which it may be moved out of the job.
//
// The first cause of a failure counts: what comes later follows from it. What happened are short lines with their
// times, the trail, which are kept in memory and written to the process's own log only when the job has failed; the
// oldest line gives way when there are more than kLines.
//
// Needs no memory besides its own, takes no lock, never throws, and leaves the thread's last error alone. Belongs to
// one thread at a time. Formats are those of printf, with wide text for %s.
class JobReport {
 public:
  static constexpr std::size_t kCauseSize = 400;  // characters, terminator included; a longer cause is cut
  static constexpr std::size_t kLines = 24;
  static constexpr std::size_t kLineSize = 160;  // characters, terminator included; a longer line is cut

  // The job's next step begins, and what fails in it has this fault unless it names its own. The text, where there is
  // one, is a line of the trail.
  void begin(JobFault fault) noexcept { m_step = fault; }
  void begin(JobFault fault, const wchar_t* format, ...) noexcept;
  // A line of the trail within the step.
  void add(const wchar_t* format, ...) noexcept;

  // The job has failed for that cause.
  void fail(JobFault fault, const wchar_t* format, ...) noexcept;
  // The job has failed in its current step, for the last text of an error record. A record without one stands for an
  // exception that nobody expected, and so does null.
  void fail(const CS_RCPtr<CS_ProgramMonitor>& record) noexcept;
  // Replaces the cause that there is: this one is behind it.
  void failInstead(JobFault fault, const wchar_t* cause) noexcept;

  bool hasFailed() const noexcept { return m_cause[0] != L'\0'; }
  JobFault fault() const noexcept { return m_fault; }
  const wchar_t* cause() const noexcept { return m_cause; }

  // Writes the trail to the process's own log, oldest line first, each with its local time, under the given word.
  void write(const wchar_t* kind) const noexcept;

  UTL_String document;               // the document's name; the job's own until the report is closed
  std::int64_t bytesTaken = 0;       // that the spooler has handed over and that were sent or collected
  std::int64_t bytesSent = 0;        // to the print client; counted when the report is closed
  DWORD pages = 0;                   // as the spooler knew them when the job began; 0 when it did not
  bool hasMorePages = false;         // it may have come to know of more since
  const wchar_t* remark = nullptr;   // what else there is to say about a job that went well, or null; static storage
  DWORD queueError = ERROR_SUCCESS;  // with which the spooler refused to delete the job, or to mark it as sent
  bool isTold = false;               // how the job ended was told already; nothing later tells it again

 private:
  struct Line {
    FILETIME at;
    wchar_t text[kLineSize];
  };
  void addLine(const wchar_t* format, va_list arguments) noexcept;

  JobFault m_step = JobFault::kUnknown;
  JobFault m_fault = JobFault::kUnknown;
  wchar_t m_cause[kCauseSize] = {};
  std::array<Line, kLines> m_lines{};
  std::size_t m_added = 0;
};
