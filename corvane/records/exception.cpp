#include "corvane/records/exception.h"

#include "corvane/base/text.h"

#include <cstdarg>

CS_Exception::CS_Exception(int number, const CS_RCPtr<CS_ProgramMonitor>* record) : m_number(number) {
  if (record != nullptr) m_record = *record;
}

CS_Exception::CS_Exception(const CS_RCPtr<CS_ProgramMonitor>& record) : m_number(0), m_record(record) {
  if (!m_record) return;
  const wchar_t* text = m_record->lastText();
  for (int i = 0; i + 1 < kDetailSize && text[i] != L'\0'; ++i)
    m_detail[i] = text[i];
}

CS_Exception::CS_Exception(int number, const wchar_t* detailFormat, ...) : m_number(number) {
  va_list arguments;
  va_start(arguments, detailFormat);
  corvane::formatWide(m_detail, kDetailSize, detailFormat, arguments);
  va_end(arguments);
}

CS_RCPtr<CS_ProgramMonitor> CS_Exception::record(int level, long long category) const {
  const CS_RCPtr<CS_ProgramMonitor> target = m_record ? m_record : CS_ProgramMonitor::getDefaultMonitor();
  if (m_number == 0) return target->recordText(level, category, L"%s", m_detail);
  if (m_detail[0] == L'\0') return target->recordNumber(level, category, m_number, nullptr);
  return target->recordNumber(level, category, m_number, L"%s", m_detail);
}
