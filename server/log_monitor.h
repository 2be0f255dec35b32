#pragma once

#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/program_monitor.h"
#include "programs/text.h"
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

// The line of a request that was not served.
void logNotServed(Log& log, const std::string& who, int request, const std::string& cause);

// Serves a request and passes on what is thrown, after a line of the log: the peer may not wait for an answer, and then
// the loss of the request would stay unknown. Such lines are counted together, whichever peer sent the request.
template <class Serve>
bool logThrown(Log& log, const std::string& who, const CS_InRequest& request, Serve&& serve) {
  try {
    return serve();
  } catch (const CS_Exception& failure) {
    logNotServed(log, who, request.number(), programs::describe(failure));
    throw;
  } catch (...) {
    logNotServed(log, who, request.number(), "out of memory");
    throw;
  }
}

}  // namespace aps
