#pragma once

#include "protocol/job_record.h"
#include "server/jobs/database.h"
#include "server/log.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace aps {

// The records of jobs in an SQLite database: in a file that survives this process however it ends, or in memory.
// Writing happens on a thread of its own, some records at a time, and holds up no job: what the file does not take
// waits here, up to kMostWaiting records, and a line in the log says so, and when it goes on. A file that is damaged is
// set aside under another name, and a new one begun. Records are dropped when they are older than Limits::days, and the
// oldest when there are more than Limits::jobs or more than Limits::megabytes, in memory when there are more than
// kMostInMemory. Safe from any thread.
class JobHistory {
 public:
  struct Limits {
    int days = 90;
    int jobs = 100000;
    int megabytes = 200;
  };
  static constexpr std::size_t kMostWaiting = 20000;
  static constexpr int kMostInMemory = 200;                      // jobs of a history without a file
  static constexpr std::chrono::milliseconds kLongestWait{100};  // for the file
  static constexpr std::chrono::milliseconds kGathering{50};     // of records that nobody waits for

  // Without a path the history is in memory and goes with the object. Jobs that an earlier process has left running are
  // told as failed.
  JobHistory(std::filesystem::path path, const Limits& limits, Log& log);
  ~JobHistory();
  JobHistory(const JobHistory&) = delete;
  JobHistory& operator=(const JobHistory&) = delete;

  // At the end of the program, which may keep this object: writes what waits, as far as the file takes it. Nothing that
  // comes later is written.
  void finish() noexcept;

  // Begins the thread that writes, which has what the program has decided for all of its threads by now. Without this
  // it begins with the first record.
  void start() noexcept;
  // Jobs are held no more but those of these numbers; the others that were have failed. Before anybody reads the
  // records.
  void endHeld(const std::set<int>& held) noexcept;
  // The number for a new job: one more than that of any job before.
  int nextNumber();
  // The record replaces what is known under its number. Does not wait. Throws std::bad_alloc, and then nothing has
  // changed.
  void put(const protocol::JobRecord& record);
  // The same where nobody could try again: without memory the record is lost, and counted.
  void putIfPossible(const protocol::JobRecord& record) noexcept;
  // How many records the file has not taken yet.
  std::size_t waitingCount();
  // Returns when the latest record of that number has been handed to the system, so that it stays whatever becomes of
  // this process, and after kLongestWait in any case; at once in memory, and while the file takes nothing.
  void awaitWritten(int number) noexcept;

  // The latest first. What cannot be read is said in the answer.
  protocol::Jobs::Answer find(const protocol::Jobs& wanted);

  // The record of a job that has ended, and its change: a number that rises with every record of a job that is written.
  struct Change {
    protocol::JobRecord record;
    std::int64_t number = 0;
  };
  // For a log of the jobs that have ended (JobLog): those of which it does not have the latest change, in the order of
  // their numbers. Throws DatabaseFailure, as does the next one; none while the file cannot be opened.
  std::vector<Change> changesToLog(int most);
  // It has these now. They are kept in the file, so that no change is forgotten however this process ends.
  void haveBeenLogged(const std::vector<Change>& changes);
  // How many of those that are to be logged have gone by the limits since the last call.
  std::int64_t takeDroppedChanges();
  // Calls this after records are written, on the thread that writes them. Set before start().
  void onWritten(std::function<void()> handler) { m_onWritten = std::move(handler); }

 private:
  void open();
  void openDatabase();
  void addColumns();
  void endLeftJobs();
  void setAside();
  void startLocked() noexcept;
  void wantLocked() noexcept;
  void run() noexcept;
  // Hands the waiting records to the file; why it does not take them, or nothing.
  std::optional<std::string> writeWaiting(const std::map<int, protocol::JobRecord>& records) noexcept;
  void writeAll(const std::map<int, protocol::JobRecord>& records);
  void prune();
  void tellTrouble(std::string why) noexcept;
  void takeBackLocked(std::map<int, protocol::JobRecord> records) noexcept;
  void boundLocked() noexcept;
  std::string name() const;

  const std::filesystem::path m_path;
  Limits m_limits;  // as they are once the object is made
  Log& m_log;
  std::mutex m_databaseLock;             // guards the two behind it; never taken with the other lock held
  std::unique_ptr<Database> m_database;  // null when it cannot be had
  int m_sincePruned = 0;                 // records written
  std::int64_t m_change = 0;             // the number of the latest
  std::int64_t m_dropped = 0;            // changes that were to be logged
  std::function<void()> m_onWritten;

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::map<int, protocol::JobRecord> m_waiting;
  std::size_t m_beingWritten = 0;  // records
  std::size_t m_lost = 0;
  std::string m_trouble;  // why nothing is written; empty when all is well
  int m_latest = 0;
  bool m_isWanted = false;  // somebody waits for what waits here
  bool m_isStopping = false;
  std::thread m_writer;
};

}  // namespace aps
