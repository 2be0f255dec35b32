#pragma once

#include "util/win_handle.h"

#include <windows.h>

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
