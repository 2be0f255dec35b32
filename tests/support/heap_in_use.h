#pragma once

#include <cstddef>

#ifdef __GLIBC__
#include <malloc.h>
#endif

// Bytes that are allocated now; 0 where that cannot be asked, and under a sanitizer.
inline std::size_t heapInUse() {
#ifdef __GLIBC__
  return ::mallinfo2().uordblks;
#else
  return 0;
#endif
}
