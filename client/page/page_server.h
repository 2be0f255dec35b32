#pragma once

#include "client/job_board.h"
#include "client/page/page_answer.h"
#include "client/page/page_guard.h"

#include <chrono>
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
  struct Limits {
    std::size_t connections = 48;
    std::size_t headerBytes = 8192;
    std::size_t bodyBytes = 1024;
    std::chrono::milliseconds request{10000};  // until a request has come whole
    std::chrono::milliseconds idle{30000};     // between two requests
    std::chrono::milliseconds send{20000};     // until a peer takes a piece of an answer
    std::chrono::milliseconds pause{100};      // between two events of a stream
    std::chrono::milliseconds sign{15000};     // a stream without events says that it is alive
  };

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
  class Connection;

  std::unique_ptr<State> m_state;
};

}  // namespace printclient
