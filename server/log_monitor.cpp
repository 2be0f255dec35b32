#include "server/log_monitor.h"

#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "programs/text.h"

#include <fmt/format.h>

namespace aps {

std::string levelWord(int level) {
  const corvane::LevelWords* known = corvane::wordsOf(level);
  return known != nullptr ? corvane::toUtf8(known->inServerLog) : fmt::format("level {}", level);
}

bool meansFailure(int level) {
  const corvane::LevelWords* known = corvane::wordsOf(level);
  return known != nullptr && known->meansFailure;
}

void LogMonitor::write(const CS_Record& record) noexcept try {
  const std::string line = fmt::format("aps: {}: {}", levelWord(record.level), programs::oneLine(record.text));
  meansFailure(record.level) ? m_log->failure(line) : m_log->line(line);
} catch (...) {
}

void LogMonitor::notify(const CS_Notice& notice) noexcept try {
  m_log->line(fmt::format("aps: {}: {}", programs::oneLine(notice.kind), programs::oneLine(notice.line)));
} catch (...) {
}

}  // namespace aps
