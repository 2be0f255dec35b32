#pragma once

#include "util/win_handle.h"

namespace mg::support {

// Takes a job number that no other process uses, for the next document that this process starts on any printer. Wine's
// spooler numbers the jobs of each process from 1 and names the spool file by that number, so two processes that print
// at a time would read each other's document. Keep what is returned until the document has ended. Throws SystemFailure.
ObjectHandle takeJobNumber(HANDLE printer);

}  // namespace mg::support
