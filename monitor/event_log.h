#pragma once

#include <windows.h>

namespace mg {

// The source under which the module writes to the system's event log, and its only event, an error whose text is the
// entry's one string. The installation registers the source; the module carries the event's text.
inline constexpr const wchar_t* kEventSource = L"MgPrintMon";
inline constexpr DWORD kJobFailedEvent = 0xC0000001;

// Writes one entry with that line. What fails here is not told anywhere, and the thread's last error stays.
void writeEvent(const wchar_t* line) noexcept;

}  // namespace mg
