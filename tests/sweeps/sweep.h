#pragma once

#include "tests/support/guarded_heap.h"
#include "tests/sweeps/world.h"

#include <initializer_list>

// One operation of the module, as a sweep repeats it. Its object is made once; nothing that it keeps may grow.
class Scenario {
 public:
  Scenario() = default;
  virtual ~Scenario() = default;
  Scenario(const Scenario&) = delete;
  Scenario& operator=(const Scenario&) = delete;

  // Before each failure, undisturbed: what the operation finds.
  virtual void prepare() {}
  // The operation. Allocates nothing of its own.
  virtual void run() = 0;
  // What must hold after it whatever failed.
  virtual void check() = 0;
  // What must hold besides when nothing failed.
  virtual void checkWhole() = 0;
  // What must hold after the operation is repeated once the failure is over; as a rule the same.
  virtual void checkRepeated() { checkWhole(); }
  // The end of what prepare() made, undisturbed.
  virtual void tidy() {}
  // Whether the system leaves this block behind on purpose. Each answer stands beside its reason.
  virtual bool isLeftOnPurpose(const guarded_heap::Block&) const { return false; }
};

// Runs the scenario with the first allocation of its thread failing, then the second, and so on until it runs through.
// After each failure: nothing was thrown, the stated result holds, every lock is free, the same operation succeeds, and
// then nothing that was allocated or opened is left. Returns how many allocations failed.
int sweepAllocations(World& world, Scenario& scenario);

// The same with the calls of windows_seams.cpp in place of allocations, once for each of the errors.
int sweepCalls(World& world, Scenario& scenario,
               std::initializer_list<DWORD> errors = {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND});
