#include "tests/support/failing_new.h"

#include <cstddef>
#include <new>

// New and delete of the whole binary.

namespace guarded_heap {
void* take(std::size_t size, std::size_t alignment, const void* caller) noexcept;
void giveBack(void* block) noexcept;
}  // namespace guarded_heap

namespace {

void* allocate(std::size_t size, std::size_t alignment, const void* caller) noexcept {
  return FailingNew::failsNow() ? nullptr : guarded_heap::take(size, alignment, caller);
}

void* allocateOrThrow(std::size_t size, std::size_t alignment, const void* caller) {
  void* block = allocate(size, alignment, caller);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

#define MG_CALLER __builtin_return_address(0)

void* operator new(std::size_t size) {
  return allocateOrThrow(size, 0, MG_CALLER);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size, 0, MG_CALLER);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, 0, MG_CALLER);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, 0, MG_CALLER);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment), MG_CALLER);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment), MG_CALLER);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, static_cast<std::size_t>(alignment), MG_CALLER);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, static_cast<std::size_t>(alignment), MG_CALLER);
}

void operator delete(void* block) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete[](void* block) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete(void* block, std::size_t) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  guarded_heap::giveBack(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  guarded_heap::giveBack(block);
}
