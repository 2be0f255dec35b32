#pragma once

#include "client/job_board.h"
#include "client/page/page_answer.h"
#include "client/page/page_guard.h"
#include "client/page/page_limits.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace printclient {

// Serves the person's page on a free port of the loopback address. One thread for all connections; nothing of it is
// seen by jobs but the board's lock. Ends with the object, however slow or hostile its peers are.
//
// Bounded: connections, of which a new one takes the place of the oldest that has not shown the secret yet, so that
// nobody without it can keep the person out; the header and body of a request; the time for each; what waits for a peer
// that reads slowly, which is one event or piece of a file.
class PageServer {
 public:
  using Limits = PageLimits;

  // Both outlive the object. onTick is called on the server's thread about once a minute. Throws std::runtime_error
  // with the cause when there is no port or no thread for it.
  PageServer(PageGuard& guard, PageAnswers& answers, JobBoard& board, const Limits& limits,
             std::function<void()> onTick = {});
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  // How many connections there are; for tests.
  std::size_t connectionCount() const;

 private:
  class State;

  std::unique_ptr<State> m_state;
};

}  // namespace printclient
