#include "util/timed_mutex.h"

TimedMutex::TimedMutex() : m_mutex(CreateMutexA(nullptr, FALSE, nullptr)) {}

DWORD TimedMutex::lock() {
  return lock(INFINITE);
}

DWORD TimedMutex::lock(DWORD milliseconds) {
  return WaitForSingleObject(m_mutex.get(), milliseconds);
}

void TimedMutex::unlock() {
  ReleaseMutex(m_mutex.get());
}
