#include "util/signal.h"

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
