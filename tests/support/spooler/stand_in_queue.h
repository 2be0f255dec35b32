#pragma once

#include <windows.h>

namespace mg::support {

// From now on the module's calls of the spooler's queue reach one that stands in for it: it has every printer and every
// job, grants everything, and says on standard output what is done to a job: "queue: job 17 deleted", "queue: job 17
// marked sent", "queue: job 17 command 1". The module is the built one; its imports are turned, so nothing else in the
// process notices. For the rest of the process. Throws a SystemFailure, or std::runtime_error when the module does not
// import one of the calls.
void useStandInQueue(HMODULE module);

}  // namespace mg::support
