#include "tests/sweeps/ledger.h"

#include <windows.h>

#include <algorithm>
#include <array>

namespace ledger {
namespace {

// The thread of the sweep, which this is made on. Not thread_local variables: the compiler's run time makes those with
// locks of its own, which wait and close through the very seams that ask here, and a new thread that waits for such a
// lock while it makes them loses its wake-up.
const DWORD kOwner = GetCurrentThreadId();
std::array<const void*, 64> open;
std::size_t count = 0;

bool isOwner() {
  return GetCurrentThreadId() == kOwner;
}

const void** find(const void* opened) {
  return std::find(open.data(), open.data() + count, opened);
}

}  // namespace

void add(const void* opened) {
  if (!isOwner()) return;
  if (count == open.size()) __builtin_trap();
  open[count++] = opened;
}

bool remove(const void* closed) {
  if (!isOwner()) return false;
  const void** at = find(closed);
  if (at == open.data() + count) return false;
  *at = open[--count];
  return true;
}

bool has(const void* opened) {
  return isOwner() && find(opened) != open.data() + count;
}

std::size_t countOpen() {
  return count;
}

}  // namespace ledger
