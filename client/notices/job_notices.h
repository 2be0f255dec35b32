#pragma once

#include "client/job_board.h"
#include "client/notices/desktop_notices.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace printclient {

// Shows a notice on the person's desktop when a job has failed, with its reason and what to do, and when a job waits
// because its printer needs somebody; each once for a job. A thread of its own, so that no job ever waits for a
// desktop; it ends with the object. Where the desktop takes no notices, nothing is shown, and a line says so once.
class JobNotices {
 public:
  using Open = std::function<std::unique_ptr<Desktop>()>;
  // Told in words why nothing is shown, on that thread.
  using OnFailure = std::function<void(const std::string& why)>;

  // The board outlives the object. A failure that the server may still explain is held back that long.
  JobNotices(JobBoard& board, OnFailure onFailure, Open open = openDesktop,
             std::chrono::milliseconds patience = std::chrono::milliseconds(2000));
  ~JobNotices();
  JobNotices(const JobNotices&) = delete;
  JobNotices& operator=(const JobNotices&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  void run() noexcept;
  void look();
  void show(const BoardJob& job);

  JobBoard& m_board;
  const OnFailure m_onFailure;
  const Open m_open;
  const std::chrono::milliseconds m_patience;
  // Of the thread alone.
  std::unique_ptr<Desktop> m_desktop;
  std::uint64_t m_seen = 0;
  std::map<std::uint64_t, JobStage> m_shown;              // what was shown last of jobs that are on the board
  std::map<std::uint64_t, Clock::time_point> m_heldBack;  // when they are shown at the latest
  bool m_hasFailed = false;

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  bool m_hasNews = false;
  bool m_isStopping = false;
  std::unique_ptr<JobBoard::Watch> m_watch;
  std::thread m_thread;
};

}  // namespace printclient
