#include "util/mutex.h"

Mutex::Mutex() {
  InitializeCriticalSection(&m_section);
}

Mutex::~Mutex() {
  DeleteCriticalSection(&m_section);
}

std::int32_t Mutex::lock() {
  EnterCriticalSection(&m_section);
  m_depth.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

std::int32_t Mutex::unlock() {
  if (m_depth.load(std::memory_order_relaxed) == 0) return 0;
  m_depth.fetch_sub(1, std::memory_order_relaxed);
  LeaveCriticalSection(&m_section);
  return 1;
}

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

Signal::Signal() : Signal(nullptr, false) {}

Signal::Signal(const char* name, bool initiallySet) : m_event(CreateEventA(nullptr, TRUE, initiallySet, name)) {}

void Signal::set() {
  SetEvent(m_event.get());
}

void Signal::reset() {
  ResetEvent(m_event.get());
}

DWORD Signal::wait() {
  return WaitForSingleObject(m_event.get(), INFINITE);
}

DWORD Signal::wait(DWORD milliseconds) {
  return milliseconds < INFINITE ? WaitForSingleObject(m_event.get(), milliseconds) : wait();
}
