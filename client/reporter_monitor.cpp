#include "client/reporter_monitor.h"

#include "corvane/levels.h"
#include "programs/one_line.h"

namespace printclient {

void ReporterMonitor::write(const CS_Record& record) noexcept try {
  if (record.level != corvane::kLevelConnectionFailure) m_reporter.line(programs::oneLine(record.text));
} catch (...) {
}

void ReporterMonitor::notify(const CS_Notice& notice) noexcept try {
  m_reporter.line(programs::oneLine(notice.line));
} catch (...) {
}

}  // namespace printclient
