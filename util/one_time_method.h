#pragma once

#include "util/mutex.h"
#include "util/utl_exception.h"

#include <windows.h>

#include <atomic>
#include <cstdint>

// Runs a method once, on the first thread that asks for it; all others get its state or wait for its end. A subclass
// supplies the method. Any thread may call; nobody may be inside when the object is destroyed. The codes are those of
// util/utl_exception.h.
class OneTimeMethod {
 public:
  OneTimeMethod() = default;
  virtual ~OneTimeMethod();
  OneTimeMethod(const OneTimeMethod&) = delete;
  OneTimeMethod& operator=(const OneTimeMethod&) = delete;

  // Runs the method and returns kSuccess when it has not been run yet. Otherwise returns the state, after the method's
  // end when waitForEnd is set; the thread that is running the method gets kRunning at once, for it would wait for
  // itself. An exception of the method goes on to the caller; the method counts as finished then.
  std::int32_t run(bool waitForEnd, std::int32_t argument);

  std::int32_t state();

  // kSuccess with the stored result once the method has finished, else kNotReady; kFailure without a place for it.
  std::int32_t result(std::int32_t* value);

  // What the method leaves behind; -1 until it does.
  void setResult(std::int32_t value);

  // Waits for the method's end: kSuccess, kTimedOut, or kFailure when the wait fails. The running thread gets kRunning.
  std::int32_t wait(DWORD milliseconds);

 protected:
  virtual void runMethod(std::int32_t argument) = 0;

 private:
  bool isRunningThread();
  void finish();

  Signal m_finished;
  std::int32_t m_result = -1;
  Mutex m_lock;
  // Written under the lock; read without it after a wait.
  std::atomic<std::int32_t> m_state{mg::status::kNotRun};
  DWORD m_runningThread = 0;
};
