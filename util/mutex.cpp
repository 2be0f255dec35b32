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
