#include "util/one_time_method.h"

#include "util/mutex.h"

OneTimeMethod::~OneTimeMethod() {
  m_state = mg::status::kDestroyed;
  m_result = -1;
  m_runningThread = 0;
}

std::int32_t OneTimeMethod::run(bool waitForEnd, std::int32_t argument) {
  m_lock.lock();
  if (m_state == mg::status::kNotRun) {
    m_state = mg::status::kRunning;
    m_runningThread = GetCurrentThreadId();
    m_lock.unlock();
    try {
      runMethod(argument);
    } catch (...) {
      // Waiting threads must not hang because of it.
      finish();
      throw;
    }
    finish();
    return mg::status::kSuccess;
  }
  const std::int32_t now = m_state;
  m_lock.unlock();
  if (!waitForEnd || isRunningThread()) return now;
  m_finished.wait();
  return m_state;
}

std::int32_t OneTimeMethod::state() {
  const Synchronized guard(m_lock);
  return m_state;
}

std::int32_t OneTimeMethod::result(std::int32_t* value) {
  if (value == nullptr) return mg::status::kFailure;
  const Synchronized guard(m_lock);
  if (m_state != mg::status::kDone) return mg::status::kNotReady;
  *value = m_result;
  return mg::status::kSuccess;
}

void OneTimeMethod::setResult(std::int32_t value) {
  const Synchronized guard(m_lock);
  m_result = value;
}

std::int32_t OneTimeMethod::wait(DWORD milliseconds) {
  if (isRunningThread()) return mg::status::kRunning;
  switch (m_finished.wait(milliseconds)) {
    case WAIT_OBJECT_0:
      return mg::status::kSuccess;
    case WAIT_TIMEOUT:
      return mg::status::kTimedOut;
    default:
      return mg::status::kFailure;
  }
}

bool OneTimeMethod::isRunningThread() {
  const Synchronized guard(m_lock);
  return m_state == mg::status::kRunning && m_runningThread == GetCurrentThreadId();
}

void OneTimeMethod::finish() {
  const Synchronized guard(m_lock);
  m_state = mg::status::kDone;
  m_runningThread = 0;
  m_finished.set();
}
