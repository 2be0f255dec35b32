#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>

namespace printclient {

// The person's wish that a job end, which may come at any time and from any thread. Shared by the job and the board.
// Whoever works on the job looks at it, or sets a handler while he waits for something that the handler can end.
class CancelRequest {
 public:
  bool isMade() const { return m_isMade; }

  // From now on the request is made; calls the handler that is set.
  void make() {
    m_isMade = true;
    const std::lock_guard<std::mutex> guard(m_lock);
    if (const auto handler = std::exchange(m_handler, nullptr)) handler();
  }

  // While it lives the handler is set: it is called once, at once where the request is made already, and not any more
  // when the destructor has returned. One at a time.
  class Handler {
   public:
    Handler(CancelRequest& request, std::function<void()> handler) : m_request(request) {
      const std::lock_guard<std::mutex> guard(request.m_lock);
      if (request.m_isMade) {
        handler();
      } else {
        request.m_handler = std::move(handler);
      }
    }
    ~Handler() {
      const std::lock_guard<std::mutex> guard(m_request.m_lock);
      m_request.m_handler = nullptr;
    }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

   private:
    CancelRequest& m_request;
  };

 private:
  std::atomic<bool> m_isMade{false};
  std::mutex m_lock;  // guards what follows, and is held while it is called
  std::function<void()> m_handler;
};

}  // namespace printclient
