#include "tests/sweeps/lock_probe.h"

#include "ports/port_list.h"
#include "session/port_monitor_server.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

void passThroughAllLocks() {
  if (CPortList* list = CPortList::instance()) {
    for (const wchar_t* name : {L"CPP7", L"CPP8"}) {
      if (tagPort* port = list->FindPort(name)) port->lock->unlock();
    }
  }
  // Not the process's instance, so that this takes the port monitor lock and does nothing more.
  PortMonitorServer other;
  other.release();
}

}  // namespace

LockProbe::LockProbe() : m_thread([this] { serve(); }) {}

LockProbe::~LockProbe() {
  {
    const std::lock_guard guard(m_lock);
    m_ends = true;
    m_changed.notify_all();
  }
  m_thread.join();
}

void LockProbe::serve() {
  std::unique_lock guard(m_lock);
  for (;;) {
    m_changed.wait(guard, [&] { return m_ends || m_answered < m_asked; });
    if (m_ends) return;
    guard.unlock();
    passThroughAllLocks();
    guard.lock();
    m_answered = m_asked;
    m_changed.notify_all();
  }
}

void LockProbe::expectFree() {
  std::unique_lock guard(m_lock);
  ++m_asked;
  m_changed.notify_all();
  if (m_changed.wait_for(guard, std::chrono::seconds(10), [&] { return m_answered == m_asked; })) return;
  std::fputs("a lock of the module is still held\n", stderr);
  std::abort();
}
