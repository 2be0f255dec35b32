#include "corvane/records/operation.h"

#include "corvane/base/process.h"
#include "corvane/records/messages.h"

CS_RCPtr<CS_ProgramMonitor> Operation::target() const {
  return m_record ? m_record : CS_ProgramMonitor::getDefaultMonitor();
}

void Operation::recordCurrentException() noexcept {
  const corvane::LastErrorKeeper keeper;
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
  const corvane::LastErrorKeeper keeper;
  m_record->recordText(m_closingLevel, corvane::kCategory, m_closingLine);
  m_record->report(true);
}
