#pragma once

#include "corvane/base/lock.h"
#include "corvane/net/patience.h"

#include <memory>
#include <thread>
#include <vector>

namespace corvane {

class Link;

// The signs of life of a program, for all of its links on one thread: a link whose two ends have agreed on it in the
// handshake says something every Patience::beat, and ends when nothing at all has come for Patience::silence. So a peer
// that was stopped, or whose line is dead, is known although the system still takes bytes for it.
//
// The thread never waits for a peer: where one takes nothing, or other bytes are on their way, there is no beat. What
// comes counts, not what it is, and time counts only while this side is waiting to receive; so neither job data in
// front of a beat nor a program that is busy with its disk makes a peer appear to be gone.
class Heartbeat {
 public:
  explicit Heartbeat(const Patience& patience = {});
  ~Heartbeat();
  Heartbeat(const Heartbeat&) = delete;
  Heartbeat& operator=(const Heartbeat&) = delete;

  const Patience& patience() const { return m_patience; }
  // From now on the link beats and listens, until it ends. Before it is served. The thread starts with the first one;
  // throws CS_Exception (3101) when the system has none.
  void watch(const std::shared_ptr<Link>& link);

 private:
  void run() noexcept;

  const Patience m_patience;
  Lock m_lock;  // guards what follows
  Condition m_changed;
  bool m_stopping = false;
  std::vector<std::weak_ptr<Link>> m_links;
  std::thread m_thread;
};

}  // namespace corvane
