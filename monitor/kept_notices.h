#pragma once

#include "corvane/records/program_monitor.h"

#include <cstddef>
#include <mutex>
#include <vector>

class CS_Connection;

namespace mg {

// Notices of jobs that no application server has heard, as a rule because it had gone in the middle of the job: the
// next one that is there is told of them, so that the failure of a job is in its lists although it ended with the
// server before. One per process; any thread may use it. At most kMost of them, with texts of at most kMostText
// characters; the oldest makes room, and all of them stand in the module's own log anyway.
class KeptNotices {
 public:
  static constexpr std::size_t kMost = 32;
  static constexpr std::size_t kMostText = 512;  // of a value; the line is the module's own, and bounded

  // Never destroyed: jobs may end until the last moment of the process.
  static KeptNotices& instance();

  // Adds to the line when that was. Without memory for it the notice is only in the log.
  void keep(CS_Notice notice) noexcept;
  // Tells them, oldest first, and keeps them no more.
  void tellAll(CS_ProgramMonitor& monitor) noexcept;
  void clear() noexcept;

 private:
  std::mutex m_lock;  // guards what follows
  std::vector<CS_Notice> m_notices;
};

// Tells a job's notice to the default program monitor, and behind it to the application server, after those that are
// kept for it. Where that monitor is the local one, the notice takes the job's own connection, which may be null. A
// notice that no server hears is kept. No lock may be held: the notice may travel.
void tellServer(CS_Notice notice, CS_Connection* connection, bool jobFailed) noexcept;

}  // namespace mg
