#include "corvane/trace_entry.h"

#include "corvane/format.h"
#include "corvane/last_error.h"
#include "corvane/local_monitor.h"

#include <cstdarg>

std::atomic<bool> CS_TraceEntry::s_enabled{false};

void CS_TraceEntry::enter(const wchar_t* format, ...) noexcept {
  const corvane::LastErrorKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  corvane::formatWide(m_text, sizeof m_text / sizeof m_text[0], format, arguments);
  va_end(arguments);
  m_active = true;
  corvane::LocalMonitor::instance().writeLine(L"enter", m_text);
}

void CS_TraceEntry::leave() noexcept {
  corvane::LocalMonitor::instance().writeLine(L"leave", m_text);
}
