#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace corvane {

// A lock, and what threads wait for under it: std::mutex and std::condition_variable, and the same calls on Windows'
// own slim locks and condition variables. The cross compiler's standard library makes its from events and semaphores,
// so that each wait and each wake is several calls into the system, which threads that wait for replies on one
// connection feel. Neither allocates or fails. Any thread may call; the one that locked unlocks.
#ifdef _WIN32
class Lock {
 public:
  void lock() noexcept;
  bool try_lock() noexcept;
  void unlock() noexcept;
  Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  friend class Condition;
  void* m_word = nullptr;  // an SRWLOCK
};

class Condition {
 public:
  Condition() = default;
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;
  void notify_one() noexcept;
  void notify_all() noexcept;
  void wait(std::unique_lock<Lock>& lock) noexcept;
  // May return earlier, as every wait may. The time is counted in milliseconds and never ends before the deadline.
  std::cv_status wait_until(std::unique_lock<Lock>& lock, std::chrono::steady_clock::time_point deadline) noexcept;

  template <class Predicate>
  void wait(std::unique_lock<Lock>& lock, Predicate isSo) {
    while (!isSo())
      wait(lock);
  }
  template <class Predicate>
  bool wait_until(std::unique_lock<Lock>& lock, std::chrono::steady_clock::time_point deadline, Predicate isSo) {
    while (!isSo()) {
      if (wait_until(lock, deadline) == std::cv_status::timeout) return isSo();
    }
    return true;
  }
  template <class Rep, class Period, class Predicate>
  bool wait_for(std::unique_lock<Lock>& lock, std::chrono::duration<Rep, Period> time, Predicate isSo) {
    return wait_until(lock, std::chrono::steady_clock::now() + time, std::move(isSo));
  }
  template <class Rep, class Period>
  std::cv_status wait_for(std::unique_lock<Lock>& lock, std::chrono::duration<Rep, Period> time) {
    return wait_until(lock, std::chrono::steady_clock::now() + std::chrono::ceil<std::chrono::milliseconds>(time));
  }

 private:
  void* m_word = nullptr;  // a CONDITION_VARIABLE
};
#else
using Lock = std::mutex;
using Condition = std::condition_variable;
#endif

}  // namespace corvane
