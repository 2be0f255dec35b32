#pragma once

#include <cstdint>
#include <functional>
#include <thread>

namespace corvane {

// Waits on one thread for any number of handles, those of Stream::idleHandle(), and tells the number of each that
// becomes readable. All operations are safe from any thread. Windows has no such handles, and nothing is watched there.
class ReadyWatch {
 public:
  // Called by the watching thread, which waits for nothing else meanwhile: it must not block, and lets no exception
  // out.
  using Ready = std::function<void(std::uint64_t number)>;

  // Throws std::system_error when the system has no thread. Where it has no descriptors nothing can be watched.
  explicit ReadyWatch(Ready ready);
  // Waits for the call that is just being made; none follows.
  ~ReadyWatch();
  ReadyWatch(const ReadyWatch&) = delete;
  ReadyWatch& operator=(const ReadyWatch&) = delete;

  // Tells the number once, as soon as the handle is readable, which it may be already. Nothing needs to be done for a
  // handle that is closed. False when the system has no room for one more.
  bool watch(int handle, std::uint64_t number) noexcept;

 private:
  void run() noexcept;

  const Ready m_ready;
#ifndef _WIN32
  const int m_epoll;
  const int m_stop;  // an eventfd(2)
  std::thread m_thread;
#endif
};

}  // namespace corvane
