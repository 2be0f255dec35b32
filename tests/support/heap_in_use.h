#pragma once

#include <cstddef>

#ifdef __GLIBC__
#include <malloc.h>
#endif

// Bytes that are allocated now; 0 where that cannot be asked, and under a sanitizer.
inline std::size_t heapInUse() {
#ifdef __GLIBC__
  const auto heap = ::mallinfo2();
  return heap.uordblks + heap.hblkhd;  // large blocks have a mapping of their own
#else
  return 0;
#endif
}
