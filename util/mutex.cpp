#include "util/mutex.h"

Mutex::Mutex() {
  InitializeCriticalSection(&section_);
}

Mutex::~Mutex() {
  DeleteCriticalSection(&section_);
}

std::int32_t Mutex::lock() {
  EnterCriticalSection(&section_);
  depth_.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

std::int32_t Mutex::unlock() {
  if (depth_.load(std::memory_order_relaxed) == 0) return 0;
  depth_.fetch_sub(1, std::memory_order_relaxed);
  LeaveCriticalSection(&section_);
  return 1;
}
