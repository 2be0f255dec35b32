#pragma once

#include <windows.h>

class Operation;
struct tagPort;

namespace mg {

// A user may act on his own jobs without having all rights on the printer. Then the spooler refuses the calls below,
// and the job stays in its queue. Both return the first error of the spooler, 0 when it did as requested.

// Deletes the port's job from the queue while an operation cleans up after its failure. Notes on the operation whether
// it went well; the note of a success names the document when one is given.
DWORD deleteQueuedJob(Operation& operation, tagPort& port, const wchar_t* documentName);

// Marks the port's job in the queue as sent. Notes on the operation what went wrong. Leaves the printer open, null when
// it could not be opened.
DWORD markQueuedJobSent(Operation& operation, tagPort& port, HANDLE& printer);

}  // namespace mg
