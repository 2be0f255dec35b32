#include "corvane/report.h"

CS_Report::CS_Report(const CS_RCPtr<CS_ProgramMonitor>& root, unsigned number, const wchar_t* firstText)
    : m_root(root), m_number(number), m_lastText(firstText) {}

CS_RCPtr<CS_ProgramMonitor> CS_Report::report(bool flushSinks) {
  if (flushSinks) flush();
  return this;
}

void CS_Report::write(const CS_Record& record) noexcept {
  m_root->write(record);
}

void CS_Report::flush() noexcept {
  m_root->flush();
}

CS_RCPtr<CS_ProgramMonitor> CS_Report::take(CS_Record record) {
  record.report = m_number;
  write(record);
  try {
    m_lastText = record.text;
  } catch (...) {
    m_lastText.clear();
  }
  return this;
}
