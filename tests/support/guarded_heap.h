#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The heap behind new and delete, in every form, of a test binary that links mg_guarded_heap:
//  - a block ends at a page that cannot be accessed, so a read or write past its end faults where it happens. Its start
//    is aligned to 16 bytes; the up to 15 bytes between its end and that page hold a pattern that is checked on delete,
//    as is the header before the block. A damaged block ends the process with a line that says which one it was.
//  - a deleted block is not accessible any more, and its addresses are never given out again: its use, and a second
//    delete, fault. New blocks hold 0xCD, not zeros.
//  - blocks are counted per thread, so that a test sees exactly what its own thread has left.
// Which allocation fails is for tests/support/failing_new.h to say. All operations may be called from any thread.
namespace guarded_heap {

struct Block {
  const void* address;
  std::size_t size;                    // bytes, as they were asked for
  std::uint64_t number;                // of all allocations of the process, in order
  std::array<const void*, 8> callers;  // innermost first; all but the first only with MG_HEAP_STACKS in the environment
};

// From the construction of this object on: what its thread has allocated and nobody has deleted.
class Mark {
 public:
  Mark();
  // Ordered from the oldest to the newest block. The list itself is not in it.
  std::vector<Block> left() const;
  std::size_t countLeft() const;

 private:
  std::uint64_t m_number;
  DWORD m_thread;
};

// While it lives, the addresses of this block are given to the next block of the same size whenever they are free, as
// an ordinary heap does. One at a time.
class Reuse {
 public:
  explicit Reuse(const void* block);
  ~Reuse();
  Reuse(const Reuse&) = delete;
  Reuse& operator=(const Reuse&) = delete;
};

// One line per block: its number, size and callers, the latter relative to the program's start, as addr2line and nm
// show them.
std::string describe(const std::vector<Block>& blocks);

}  // namespace guarded_heap
