#pragma once

#include "corvane/records/program_monitor.h"
#include "server/log.h"

#include <memory>
#include <string>

namespace aps {

// A record's level as a word: "failure", "note", "stack trace", "connection" or "exception", and the number itself for
// a level that is not known.
std::string levelWord(int level);
// Whether a record of that level tells of a failure, and not only where it passed or what was cleaned up.
bool meansFailure(int level);

// This process's own framework records and notices, as lines of its log. Safe from any thread.
class LogMonitor : public CS_ProgramMonitor {
 public:
  explicit LogMonitor(std::shared_ptr<Log> log) : m_log(std::move(log)) {}

  void notify(const CS_Notice& notice) noexcept override;

 protected:
  void write(const CS_Record& record) noexcept override;

 private:
  std::shared_ptr<Log> m_log;
};

}  // namespace aps
