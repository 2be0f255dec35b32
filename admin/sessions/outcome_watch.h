#pragma once

#include "admin/base/failure.h"
#include "admin/sessions/application_server.h"
#include "admin/sessions/job_paper.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace admin {

// Waits for the outcome of a job from the server, and for what becomes of it then. The server may be away at first or
// for a while: printing does not depend on it, only the knowledge of the outcome does. Belongs to one thread.
class OutcomeWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // Must be made before the job: only outcomes from then on are seen. 0 means the port in the registry.
  explicit OutcomeWatch(int serverPort) : m_port(serverPort) { connect(); }

  // Empty when the outcome is unknown at the deadline. The server is never asked to wait longer than the time that is
  // left; one that does not answer adds at most kPatience.
  std::optional<JobOutcome> wait(const AwaitedJob& job, Clock::time_point deadline);

  // Behind wait(), for the same job: what becomes of it at its printer, until that is final or the deadline has passed;
  // each change is told. The latest of all, also of what came before the outcome; empty when nobody has told anything.
  using OnChange = std::function<void(const JobPaper& paper)>;
  std::optional<JobPaper> waitForPaper(const AwaitedJob& job, Clock::time_point deadline, const OnChange& onChange);

  // Behind wait(), for a job of that session that was delivered as far as the port monitor can tell: whether the server
  // holds it for a print client that is away. False when the server does not say.
  bool isHeld(const AwaitedJob& job, int session);

  bool isThere() const { return m_server != nullptr; }
  // Why the outcome is unknown, and the remedy.
  const std::string& why() const { return m_why; }
  const std::string& remedy() const { return m_remedy; }

  static constexpr long long kLongestWait = 5000;  // milliseconds that the server lets a client wait for a notice
  static constexpr unsigned kPatience = 1000;      // milliseconds for the answer on top of that

 private:
  void connect();
  // Asks for news, again and again, until that is true; false at the deadline.
  bool waitUntil(const std::function<bool()>& isDone, const AwaitedJob& job, Clock::time_point deadline);
  void ask(const AwaitedJob& job, long long left);
  void lose(const Failure& failure);

  const int m_port;
  std::unique_ptr<ApplicationServer> m_server;
  bool m_isFirst = true;
  bool m_wasThere = false;
  int m_after = 0;
  std::optional<JobOutcome> m_outcome;
  std::deque<JobPaper> m_news;  // of the printer, not told yet
  std::string m_why, m_remedy;
};

}  // namespace admin
