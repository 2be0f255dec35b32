#pragma once

#include <atomic>

namespace tests {

// What a test tells the library that is loaded in front of a program (failing_calls.cpp), in a file that both have
// mapped: the nth call of one kind from now on fails, once, whichever thread makes it.
struct FailingCalls {
  enum Kind : int {
    kNone,
    kAllocation,      // with new
    kAllAllocations,  // not one: all of them, for as long as this stands here
    kThread,          // the start of one
    kFile,  // of a file or folder in the folder of held jobs: making, opening, writing, syncing, renaming, removing
  };

  std::atomic<int> kind{kNone};
  std::atomic<int> left{0};    // calls until the one that fails
  std::atomic<int> failed{0};  // calls that have failed
  std::atomic<int> days{0};    // that the program's clock is ahead
};

}  // namespace tests
