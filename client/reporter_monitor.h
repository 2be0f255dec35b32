#pragma once

#include "client/reporter.h"
#include "corvane/program_monitor.h"

namespace printclient {

// This process's own framework records, for the person who sees the reporter's lines. Failures to connect are left out:
// SessionLoop says more about them. Safe from any thread; the reporter outlives it.
class ReporterMonitor : public CS_ProgramMonitor {
 public:
  explicit ReporterMonitor(Reporter& reporter) : m_reporter(reporter) {}

  void notify(const CS_Notice& notice) noexcept override;

 protected:
  void write(const CS_Record& record) noexcept override;

 private:
  Reporter& m_reporter;
};

}  // namespace printclient
