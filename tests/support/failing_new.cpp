#include "tests/support/failing_new.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<DWORD> failingThread{0};
int failIn = 0;

bool failsNow() {
  return failingThread.load() == GetCurrentThreadId() && failIn > 0 && --failIn == 0;
}

void* allocate(std::size_t size) {
  return failsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* allocateOrThrow(std::size_t size) {
  void* block = allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

FailingNew::FailingNew(int nth) {
  failIn = nth;
  failingThread = GetCurrentThreadId();
}

FailingNew::~FailingNew() {
  failingThread = 0;
}

bool FailingNew::hasFailed() const {
  return failIn == 0;
}

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}
