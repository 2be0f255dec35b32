#include "server/log_monitor.h"

#include "corvane/records/messages.h"
#include "programs/text.h"

namespace aps {

std::string levelWord(int level) {
  switch (level) {
    case corvane::kLevelFailure:
      return "failure";
    case corvane::kLevelCleanupNote:
      return "note";
    case corvane::kLevelStackTrace:
      return "stack trace";
    case corvane::kLevelConnectionFailure:
      return "connection";
    case corvane::kLevelException:
      return "exception";
    default:
      return "level " + std::to_string(level);
  }
}

bool meansFailure(int level) {
  return level == corvane::kLevelFailure || level == corvane::kLevelConnectionFailure ||
         level == corvane::kLevelException;
}

void LogMonitor::write(const CS_Record& record) noexcept try {
  const std::string line = "aps: " + levelWord(record.level) + ": " + programs::oneLine(record.text);
  meansFailure(record.level) ? m_log->failure(line) : m_log->line(line);
} catch (...) {
}

void LogMonitor::notify(const CS_Notice& notice) noexcept try {
  m_log->line("aps: " + programs::oneLine(notice.kind) + ": " + programs::oneLine(notice.line));
} catch (...) {
}

}  // namespace aps
