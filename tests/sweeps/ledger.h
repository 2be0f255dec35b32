#pragma once

#include <cstddef>

// What the code under test has opened and not closed yet: handles, registry keys, files, printers. Kept for the thread
// of the sweep only, without allocations, by the seams of windows_seams.cpp.
namespace ledger {

void add(const void* opened);
// Whether it was there.
bool remove(const void* closed);
bool has(const void* opened);
std::size_t countOpen();

}  // namespace ledger
