#pragma once

#include "programs/service_manager.h"
#include "server/log.h"
#include "server/own_calls.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace aps {

// What the service manager that has started this server is told of it: when it is ready, reopens its log and stops, and
// that it is alive. Signs of life come from a thread of its own, but only after every listener's accepting thread has
// answered an OwnCall; the manager ends a server that gives none. Where there is no manager, nothing happens. What
// cannot be told is a line of the log, once. Safe from any thread.
class Supervision {
 public:
  // The look is that of OwnCalls.
  Supervision(programs::ServiceManager manager, std::shared_ptr<Log> log, std::function<void()> look);
  ~Supervision();
  Supervision(const Supervision&) = delete;
  Supervision& operator=(const Supervision&) = delete;

  bool isThere() const { return m_manager.isThere(); }
  // Every listener listens at its address, as corvane::Listener::address() gives it; the first is that for this
  // machine. Unless the server has been told to stop by now.
  void ready(std::vector<std::string> listeners);
  // For a thread that has accepted: see OwnCalls::answer.
  bool answersOwnCall(corvane::Socket& accepted) { return m_calls.answer(accepted); }
  // Carries the work out, between telling that it begins and that it is done.
  void reload(const std::function<void()>& work);
  // No sign of life is given any more.
  void stopping();

 private:
  using Clock = std::chrono::steady_clock;

  void tellLocked(const std::string& assignments);
  void watch() noexcept;
  // Calls every listener once. The first that does not answer, with the reason; empty when all do.
  std::string callAll(Clock::duration limit);
  // Keeps what came of the calls, and tells it.
  void judge(const std::string& failure);

  const programs::ServiceManager m_manager;
  const std::shared_ptr<Log> m_log;
  OwnCalls m_calls;
  std::vector<std::string> m_listeners;  // as ready() was told
  std::mutex m_lock;                     // guards what follows; held while the manager is told, so that it is in order
  std::condition_variable m_stopped;
  std::string m_status;
  bool m_isReady = false;
  bool m_isStopping = false;
  bool m_isUnanswered = false;
  bool m_hasComplained = false;
  std::thread m_watcher;
};

}  // namespace aps
