#include "corvane/records/operation.h"

#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "util/last_error.h"

#include <cstdarg>

CS_RCPtr<CS_ProgramMonitor> Operation::target() const {
  return m_record ? m_record : CS_ProgramMonitor::getDefaultMonitor();
}

void Operation::recordCurrentException() noexcept {
  const mg::LastErrorKeeper keeper;
  try {
    throw;
  } catch (const CS_Exception& exception) {
    m_record = exception.record(m_exceptionLevel, corvane::kCategory);
  } catch (...) {
    // The default monitor itself becomes the error record: it needs no memory, which may be what is missing.
    m_record = CS_ProgramMonitor::getDefaultMonitor();
    m_record->recordNumber(m_exceptionLevel, corvane::kCategory, corvane::kUnknownException, nullptr);
  }
}

void Operation::close() noexcept {
  if (m_closingLine == nullptr) return;
  const mg::LastErrorKeeper keeper;
  m_record->recordText(m_closingLevel, corvane::kCategory, m_closingLine);
  m_record->report(true);
}

std::atomic<bool> CS_TraceEntry::s_enabled{false};

void CS_TraceEntry::enter(const wchar_t* format, ...) noexcept {
  const mg::LastErrorKeeper keeper;
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
