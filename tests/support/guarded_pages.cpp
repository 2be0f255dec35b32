#include "tests/support/guarded_pages.h"

#include <windows.h>

#include <algorithm>

namespace guarded_pages {
namespace {

constexpr std::size_t kPage = 4096;
// Addresses are reserved in large pieces: a reservation of its own for each block would take 64 KiB of them.
constexpr std::size_t kPiece = std::size_t{4} << 30;

SRWLOCK lock = SRWLOCK_INIT;  // guards what follows
unsigned char* next = nullptr;
unsigned char* end = nullptr;

unsigned char* takeAddresses(std::size_t size) {
  AcquireSRWLockExclusive(&lock);
  if (static_cast<std::size_t>(end - next) < size) {
    const std::size_t piece = std::max(kPiece, size);
    next = static_cast<unsigned char*>(VirtualAlloc(nullptr, piece, MEM_RESERVE, PAGE_NOACCESS));
    end = next == nullptr ? nullptr : next + piece;
  }
  unsigned char* addresses = next;
  if (next != nullptr) next += size;
  ReleaseSRWLockExclusive(&lock);
  return addresses;
}

}  // namespace

Range take(std::size_t bytes) noexcept {
  if (bytes > kPiece * 4) return {nullptr, nullptr};
  const std::size_t size = (bytes + kPage - 1) / kPage * kPage;
  unsigned char* base = takeAddresses(size + kPage);
  if (base == nullptr || VirtualAlloc(base, size, MEM_COMMIT, PAGE_READWRITE) == nullptr) return {nullptr, nullptr};
  return {base, base + size};
}

bool takeAgain(Range range) noexcept {
  return VirtualAlloc(range.base, static_cast<std::size_t>(range.end - range.base), MEM_COMMIT, PAGE_READWRITE) !=
         nullptr;
}

void giveBack(Range range) noexcept {
  VirtualFree(range.base, static_cast<std::size_t>(range.end - range.base), MEM_DECOMMIT);
}

}  // namespace guarded_pages
