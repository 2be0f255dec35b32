#pragma once

#include "corvane/records/program_monitor.h"

#include <cstddef>
#include <mutex>
#include <vector>

class CS_Connection;

namespace mg {

// Notices of jobs that have reached no application server, usually because it went away in the middle of the job. They
// are sent to the next server that is there, so that its lists have the failure of a job that the server before could
// not be told. One object per process; any thread may use it. Keeps at most kMost notices, with texts of at most
// kMostText characters; the oldest makes room. All of them are in the module's own log as well.
class KeptNotices {
 public:
  static constexpr std::size_t kMost = 32;
  static constexpr std::size_t kMostText = 512;  // of a value; the line is the module's own, and bounded

  // Never destroyed: jobs may end until the last moment of the process.
  static KeptNotices& instance();

  // Adds the time to the line. Without memory for it the notice is only in the log.
  void keep(CS_Notice notice) noexcept;
  // Sends all of them, oldest first, and drops them.
  void tellAll(CS_ProgramMonitor& monitor) noexcept;
  void clear() noexcept;

 private:
  std::mutex m_lock;  // guards what follows
  std::vector<CS_Notice> m_notices;
};

// Sends a job's notice to the default program monitor and so to the application server, after those that are kept for
// it. Where that monitor is the local one, the notice takes the job's own connection, which may be null. A notice that
// reaches no server is kept. Callers hold no lock: the notice may go over the network.
void tellServer(CS_Notice notice, CS_Connection* connection, bool jobFailed) noexcept;

}  // namespace mg
