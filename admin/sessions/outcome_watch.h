#pragma once

#include "admin/base/failure.h"
#include "admin/sessions/application_server.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace admin {

// The server as the teller of outcomes. It may be away, at first or for a while: printing does not depend on it,
// knowing what became of it does. Used by one thread.
class OutcomeWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // Made before the job, whose outcome is among what the server tells from then on. 0 is the registry's port.
  explicit OutcomeWatch(int serverPort) : m_port(serverPort) { connect(); }

  // Nothing when nobody could say it until then. The server is never asked to wait for longer than what is left; one
  // that does not answer takes kPatience more at the most.
  std::optional<JobOutcome> wait(const AwaitedJob& job, Clock::time_point deadline);

  bool isThere() const { return m_server != nullptr; }
  // Why it is not known, and what to do about it.
  const std::string& why() const { return m_why; }
  const std::string& remedy() const { return m_remedy; }

  static constexpr long long kLongestWait = 5000;  // that the server lets somebody wait for a notice
  static constexpr unsigned kPatience = 1000;      // milliseconds for the answer on top of that

 private:
  void connect();
  std::optional<JobOutcome> ask(const AwaitedJob& job, long long left);
  void lose(const Failure& failure);

  const int m_port;
  std::unique_ptr<ApplicationServer> m_server;
  bool m_isFirst = true;
  bool m_wasThere = false;
  int m_after = 0;
  std::string m_why, m_remedy;
};

}  // namespace admin
