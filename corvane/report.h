#pragma once

#include "corvane/program_monitor.h"

#include <string>

// The records of one failure: what was recorded first on a root monitor opens it, and what follows goes to the same
// root under the same report number. Made by CS_ProgramMonitor; kept alive by whoever holds it.
class CS_Report : public CS_ProgramMonitor {
 public:
  CS_Report(const CS_RCPtr<CS_ProgramMonitor>& root, unsigned number, const wchar_t* firstText);

  CS_RCPtr<CS_ProgramMonitor> report(bool flush) override;
  const wchar_t* lastText() const override { return m_lastText.c_str(); }
  void notify(const CS_Notice& notice) noexcept override { m_root->notify(notice); }

 protected:
  void write(const CS_Record& record) noexcept override;
  void flush() noexcept override;
  CS_RCPtr<CS_ProgramMonitor> take(CS_Record record) override;

 private:
  CS_RCPtr<CS_ProgramMonitor> m_root;
  unsigned m_number;
  std::wstring m_lastText;  // a report belongs to one operation, and so to one thread
};
