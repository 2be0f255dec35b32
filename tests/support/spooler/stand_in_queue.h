#pragma once

#include <windows.h>

namespace mg::support {

enum class QueueWords { kSaid, kNotSaid };

// From now on the module's calls of the spooler's queue reach one that stands in for it: it has every printer and every
// job, grants everything, and, where that is to be said, tells on standard output what is done to a job: "queue: job 17
// deleted", "queue: job 17 marked sent", "queue: job 17 command 1". The module is the built one; its imports are
// turned, so nothing else in the process notices. For the rest of the process. Throws a SystemFailure, or
// std::runtime_error when the module does not import one of the calls.
void useStandInQueue(HMODULE module, QueueWords words = QueueWords::kSaid);

}  // namespace mg::support
