#include "tests/sweeps/ledger.h"

#include <algorithm>
#include <array>

namespace ledger {
namespace {

// One per thread: only the thread of the sweep is looked at.
thread_local std::array<const void*, 64> open;
thread_local std::size_t count = 0;

const void** find(const void* opened) {
  return std::find(open.data(), open.data() + count, opened);
}

}  // namespace

void add(const void* opened) {
  if (count == open.size()) __builtin_trap();
  open[count++] = opened;
}

bool remove(const void* closed) {
  const void** at = find(closed);
  if (at == open.data() + count) return false;
  *at = open[--count];
  return true;
}

bool has(const void* opened) {
  return find(opened) != open.data() + count;
}

std::size_t countOpen() {
  return count;
}

}  // namespace ledger
