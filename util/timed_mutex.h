#pragma once

#include "util/win_handle.h"

#include <windows.h>

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
