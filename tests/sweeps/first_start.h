#pragma once

// The first start-up of the module in a process, with its nth allocation failing, and then a second one that has to
// succeed and to find every class. To be run in a process of its own. Returns one of the following.
int firstStart(int nth);

inline constexpr int kStartedUndisturbed = 20;  // the start-up has fewer allocations
inline constexpr int kStartedAfterFailure = 21;
inline constexpr int kStartFailed = 22;  // the second one did not succeed
