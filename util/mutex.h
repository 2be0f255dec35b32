#pragma once

#include "util/win_handle.h"

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

// A re-entrant lock on a Windows mutex, for the places that must not wait without limit. Any thread may call; the
// thread that locked gives it back.
class TimedMutex {
 public:
  TimedMutex();
  virtual ~TimedMutex() = default;
  TimedMutex(const TimedMutex&) = delete;
  TimedMutex& operator=(const TimedMutex&) = delete;

  // Both return the wait's result as Windows gives it; the lock is held after WAIT_OBJECT_0, and after WAIT_ABANDONED
  // when its former holder ended without giving it back.
  DWORD lock();
  DWORD lock(DWORD milliseconds);

  // Does nothing when the calling thread does not hold the lock.
  void unlock();

 private:
  mg::ObjectHandle m_mutex;
};

// A Windows event that stays set, for every waiter, until it is reset. Any thread may call.
class Signal {
 public:
  // Not set, without a name.
  Signal();
  // Opens or creates the event of that name in the session; initiallySet counts when it is created.
  Signal(const char* name, bool initiallySet);
  virtual ~Signal() = default;
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  void set();
  void reset();

  // Both return the wait's result as Windows gives it: WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED. 0xFFFFFFFF
  // milliseconds wait without limit.
  DWORD wait();
  DWORD wait(DWORD milliseconds);

 private:
  mg::ObjectHandle m_event;
};

// The lock of the port list and of each port: a Mutex under the name that says so. FindPort hands a port out with its
// CriticalSection held, and the caller leaves it with unlock().
class CriticalSection : public Mutex {};

// Holds a lock for the rest of the scope that it is declared in; an exception that leaves the scope gives it back.
// The lock must outlive the guard. A guard belongs to the thread that made it.
class Synchronized {
 public:
  explicit Synchronized(Mutex& mutex) : m_mutex(&mutex) { m_mutex->lock(); }
  virtual ~Synchronized() { m_mutex->unlock(); }
  Synchronized(const Synchronized&) = delete;
  Synchronized& operator=(const Synchronized&) = delete;

 private:
  Mutex* m_mutex;
};
