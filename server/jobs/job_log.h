#pragma once

#include "server/jobs/job_history.h"
#include "server/jobs/job_log_file.h"
#include "server/log.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace aps {

// The records of jobs that have ended as lines of JSON (protocol/job_json.h) in a file, for a program that collects
// those of many servers. A job has ended when its print client has answered, or when nothing more comes of it; when its
// record changes later - the port monitor says whose it was, the printer that it is done - it is another line of the
// same number. Each line has "change", which rises with every line of the server: of a job's lines the one with the
// highest counts.
//
// A thread of its own writes, and holds up neither jobs nor their history. What the file does not take stays in the
// history, which says what has been written: nothing is missing after this process was killed, and a line may be there
// twice. A file that takes nothing is said in the log, and when it goes on. Safe from any thread.
class JobLog {
 public:
  struct Settings {
    std::filesystem::path path;
    std::uint64_t limitBytes = 64 * 1024 * 1024;
    std::chrono::milliseconds gathering{1000};  // so that the end of a job and what is told with it are one line
    std::chrono::milliseconds betweenTries{5000};
  };
  static constexpr int kAtOnce = 100;   // lines
  static constexpr int kLastOnes = 50;  // times so many at the end; the next start goes on with the rest

  // The history is in a file, has not been started, and stays longer than this object is in use.
  JobLog(Settings settings, JobHistory& history, Log& log);
  ~JobLog() { finish(); }
  JobLog(const JobLog&) = delete;
  JobLog& operator=(const JobLog&) = delete;

  void start();
  // Writes what the history has, as far as the file takes it. Nothing is written later.
  void finish() noexcept;
  // The file was renamed: what follows goes to a new one of that name.
  void reopen() noexcept;

 private:
  enum class Outcome { kDone, kMore, kTrouble };

  void wake() noexcept;
  void run() noexcept;
  // Writes some lines.
  Outcome writeSome() noexcept;
  void markWritten();
  void tellTrouble(const std::string& why);

  const Settings m_settings;
  JobHistory& m_history;
  Log& m_log;
  // Of the thread that writes.
  JobLogFile m_file;
  std::vector<JobHistory::Change> m_changes;  // that are being written
  std::string m_lines;                        // of them; the same until all are written
  bool m_isWritten = false;                   // and the history is to be told so
  std::string m_trouble;                      // empty when all is well

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  bool m_isWanted = true;  // for what an earlier process has left
  bool m_isStopping = false;
  std::thread m_writer;
};

}  // namespace aps
