#pragma once

#include "server/log.h"
#include "server/session_table.h"
#include "server/state_file.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace aps {

// What of one session is kept at most, so that none takes the room of others.
inline constexpr std::size_t kSessionBytes = 128 * 1024;

// The sessions and their printers as the text that outlives this server, JSON in UTF-8, and back. Nothing in it is
// secret: every user who prints sees the same names, and the mark of a key does not give the key away. A session with a
// text that has no UTF-8 form is left out. Of one that is longer than kSessionBytes only the names and drivers of its
// printers are kept, or nothing where that is too long, too.
std::string toStateText(const std::vector<SessionTable::Status>& sessions);

// Throws std::runtime_error with what is wrong with the text, for a person. A session that had a client counts as
// without one since the time that is given.
std::vector<SessionTable::Status> fromStateText(const std::string& text, std::chrono::system_clock::time_point now);

// Keeps the sessions of a table in a file, so that a server which is started again knows them. The file is written on a
// thread of its own, at most once in kPause, so that no client or job waits for a disk. What cannot be read
// or written has one line in the log; printing goes on.
class SessionKeeper {
 public:
  static constexpr std::chrono::milliseconds kPause{200};

  // Tells the table what the file holds, before anybody uses the table, and follows its changes from then on. The table
  // outlives the keeper.
  SessionKeeper(const std::filesystem::path& file, SessionTable& table, std::shared_ptr<Log> log);
  ~SessionKeeper() { stop(); }
  SessionKeeper(const SessionKeeper&) = delete;
  SessionKeeper& operator=(const SessionKeeper&) = delete;

  // Writes what has changed, and keeps that: what happens to the sessions afterwards, when everybody is sent away
  // because the server ends, does not count. May be called again.
  void stop();

 private:
  void readFile();
  void run();
  void writeFile() noexcept;

  StateFile m_file;
  const std::string m_name;
  SessionTable& m_table;
  const std::shared_ptr<Log> m_log;
  bool m_failed = false;  // the last time it was written; of the thread
  std::mutex m_lock;      // guards what follows
  std::condition_variable m_wakeUp;
  bool m_changed = false;
  bool m_stopping = false;
  std::thread m_thread;
};

}  // namespace aps
