#pragma once

#include "corvane/components/bridge_router.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

class CS_Connection;

namespace aps {

// The jobs that go through this server right now: which of the monitor's connections have one, and how many each
// session has. Safe from any thread.
class JobsInProgress {
 public:
  // Counts as long as somebody holds it. May outlive the list.
  using Mark = std::shared_ptr<void>;

  explicit JobsInProgress(std::size_t limitOfOneSession) : m_limit(limitOfOneSession) {}

  // A job of that connection to that session has begun; null when the session has its limit of them.
  Mark begin(int session, const CS_Connection* connection);
  // The connection is needed, though it has no job: somebody waits for an answer.
  Mark wait(const CS_Connection* connection);

  bool isNeeded(const CS_Connection* connection) const;
  std::size_t limitOfOneSession() const { return m_limit; }

 private:
  struct State {
    std::mutex lock;  // guards what follows
    std::map<int, std::size_t> ofSession;
    std::map<const CS_Connection*, std::size_t> ofConnection;
  };
  static Mark mark(const std::shared_ptr<State>& state, int session, const CS_Connection* connection);

  const std::size_t m_limit;
  const std::shared_ptr<State> m_state = std::make_shared<State>();
};

// The printers for which a program was started to show a job, and whose job has not ended yet: such a job ends without
// asking for its end, and is not lost. At most kKept; the oldest makes room. Safe from any thread.
class ShownJobs {
 public:
  static constexpr std::size_t kKept = 256;

  void add(std::wstring printer) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_printers.push_back(std::move(printer));
    if (m_printers.size() > kKept) m_printers.pop_front();
  }
  // True once for each add() of that printer.
  bool take(const std::wstring& printer) {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = std::find(m_printers.begin(), m_printers.end(), printer);
    if (found == m_printers.end()) return false;
    m_printers.erase(found);
    return true;
  }

 private:
  std::mutex m_lock;  // guards what follows
  std::deque<std::wstring> m_printers;
};

// Is told of each job on its way through this server, by who serves the port monitor. Any thread; nothing here may hold
// up a job for longer than it says.
class JobWatch {
 public:
  virtual ~JobWatch() = default;

  // A job of that printer, by its name on this server, from that process has found its session. Returns its number.
  virtual int begin(const std::wstring& printer, int session, int process) = 0;
  // This server takes it in its client's place; before its route is made.
  virtual void hold(int job) = 0;
  // Its route is made, and can be cut.
  virtual void routed(int job, CS_RCPtr<CS_BridgeRouter> router) = 0;
  // What goes through it. Returns when the end's answer can be passed on.
  virtual void passed(int job, const CS_BridgeRouter::Passing& passing) noexcept = 0;
  // It has ended; isShown when a program was started to show it instead. True when somebody has canceled it.
  virtual bool ended(int job, const CS_BridgeRouter::Ending& ending, bool isShown) noexcept = 0;
  // It has not come so far.
  virtual void refused(int job, std::wstring_view cause) noexcept = 0;
};

}  // namespace aps
