#pragma once

#include "client/job_follower.h"
#include "client/reporter.h"
#include "corvane/components/component.h"

#include <map>
#include <mutex>
#include <string>

namespace printclient {

// Tells what becomes of jobs after their sinks have taken them: the person, with a line for each change, and the server
// that a job came from, for as long as there is a connection to it. Any thread; nothing is sent while the lock is held.
class PaperReport {
 public:
  explicit PaperReport(Reporter& reporter) : m_reporter(reporter) {}

  // The server has registered this process's printers, by that component on the connection.
  void enter(int server, const CS_RCPtr<CS_Component>& component);
  // Its connection has ended. Waits for nothing.
  void leave(int server) noexcept;

  // The first progress is in the line that says that the job was printed.
  void tell(const FollowedJob& job, const JobProgress& progress, bool isFirst) noexcept;
  // Of a job that no sink has taken; the person has read why, and here the cause is a sentence of its own.
  void tellRefused(const FollowedJob& job, const JobProgress& why) noexcept;

 private:
  // Nothing when there is no connection.
  void tellServer(const FollowedJob& job, const protocol::PaperNews& news);

  Reporter& m_reporter;
  std::mutex m_lock;  // guards what follows
  std::map<int, CS_RCPtr<CS_Component>> m_servers;
};

// The person's line.
std::string paperLine(const FollowedJob& job, const JobProgress& progress);
// What the server is told.
protocol::PaperNews paperNews(const FollowedJob& job, const JobProgress& progress);
protocol::PaperNews refusalNews(const FollowedJob& job, const JobProgress& why);

}  // namespace printclient
