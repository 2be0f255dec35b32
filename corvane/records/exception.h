#pragma once

#include "corvane/records/program_monitor.h"

// A failure on its way to the boundary of an operation. Copying never allocates and never throws, so that an
// out-of-memory can be reported with it.
class CS_Exception {
 public:
  // From a framework message number (corvane/records/messages.h); the record may be null.
  CS_Exception(int number, const CS_RCPtr<CS_ProgramMonitor>* record);
  CS_Exception(int number, std::nullptr_t) : m_number(number) {}
  // From the record that a monitor returned for a message; its number is 0.
  explicit CS_Exception(const CS_RCPtr<CS_ProgramMonitor>& record);
  // From a framework message number with what went wrong in particular; the detail is cut at kDetailSize - 1
  // characters.
  CS_Exception(int number, const wchar_t* detailFormat, ...);

  // Writes the exception at the given level: on its own record when it carries one, otherwise on the default monitor.
  // Returns the report it was written to, never null.
  CS_RCPtr<CS_ProgramMonitor> record(int level, long long category) const;

  int number() const { return m_number; }
  // What went wrong in particular, empty when nothing more is known than the number.
  const wchar_t* detail() const { return m_detail; }

  static constexpr int kDetailSize = 256;

 private:
  int m_number;
  CS_RCPtr<CS_ProgramMonitor> m_record;
  wchar_t m_detail[kDetailSize] = {};
};
