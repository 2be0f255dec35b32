#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

// A re-entrant lock on a Windows critical section that counts how often it is held. The depth counts all holds
// together, not those of one thread. Any thread may call; a lock waits without limit.
class Mutex {
 public:
  Mutex();
  virtual ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // Waits until the calling thread holds the lock. Always returns 0.
  std::int32_t lock();

  // Gives back one hold and returns 1. When nobody holds the lock it does nothing and returns 0. Only the thread that
  // holds the lock may give it back.
  std::int32_t unlock();

 private:
  CRITICAL_SECTION m_section;
  // Atomic because an unlock reads it before it is known whether the caller holds the section.
  std::atomic<std::int32_t> m_depth{0};
};
