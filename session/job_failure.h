#pragma once

#include "corvane/records/program_monitor.h"

#include <cstddef>

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

// Why a job failed, in words. The first cause that is noted is the one that counts: what comes later follows from it.
// A plain value without memory of its own; noting never fails and leaves the thread's last error alone. Belongs to one
// thread at a time.
class JobFailure {
 public:
  static constexpr std::size_t kCauseSize = 400;  // characters, terminator included; a longer cause is cut

  // What a failure from here on means, for the causes that do not say it themselves.
  void expect(JobFault fault) noexcept { m_expected = fault; }

  void note(JobFault fault, const wchar_t* format, ...) noexcept;
  // Replaces what was noted: the cause of everything that was noted before.
  void noteInstead(JobFault fault, const wchar_t* cause) noexcept;
  // The last text of an error record. A record without one stands for an exception that nobody expected, which is told
  // as such.
  void note(const CS_RCPtr<CS_ProgramMonitor>& record) noexcept;

  bool isNoted() const noexcept { return m_cause[0] != L'\0'; }
  JobFault fault() const noexcept { return m_fault; }
  const wchar_t* cause() const noexcept { return m_cause; }

 private:
  JobFault m_expected = JobFault::kUnknown;
  JobFault m_fault = JobFault::kUnknown;
  wchar_t m_cause[kCauseSize] = {};
};
