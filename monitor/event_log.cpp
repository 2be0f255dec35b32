#include "monitor/event_log.h"

#include "corvane/last_error.h"
#include "corvane/process_identity.h"

namespace mg {

void writeEvent(const wchar_t* line) noexcept {
  const corvane::LastErrorKeeper keeper;
  const corvane::ProcessIdentity identity;
  const HANDLE log = RegisterEventSourceW(nullptr, kEventSource);
  if (log == nullptr) return;
  ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, kJobFailedEvent, nullptr, 1, 0, &line, nullptr);
  DeregisterEventSource(log);
}

}  // namespace mg
