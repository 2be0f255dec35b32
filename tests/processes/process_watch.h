#pragma once

#include <cstddef>
#include <sys/types.h>

namespace tests {

// What a process holds at one moment, as the system counts it.
struct Held {
  std::size_t kilobytes = 0;  // memory that is its own: of the heap, stacks and written pages, not of files
  std::size_t threads = 0;
  std::size_t descriptors = 0;
  double processorSeconds = 0;  // that all its threads have had so far, those that have ended included
};

// Throws std::runtime_error when the process is not there.
Held heldBy(pid_t process);

// The same once the process has no more threads and descriptors than that: what has just ended there may take a
// moment to go, and no event tells. Waits ten seconds at most.
Held heldAtRest(pid_t process, const Held& before);

}  // namespace tests
