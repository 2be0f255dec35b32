#pragma once

#include <windows.h>

class Operation;
struct tagPort;

// Runs the spooler's own initialisation on behalf of the client whose remote call the thread is serving, and returns
// its result; 0, with the reason recorded, when it could not be called. The impersonation ends before this returns.
// Does not throw.
DWORD InitSpooler();

namespace mg {

// What the spooler says of the pages of a job.
struct QueuedPages {
  DWORD count = 0;         // 0 when it does not know
  bool isGrowing = false;  // the application prints still: there may be more of them later
};

}  // namespace mg

// How many copies the spooler's job asks for: the device mode's count when the job has one above 0, otherwise 1, which
// is also the answer when the spooler cannot be asked. Does not throw. Fills in the pages, unless they are null, when
// the spooler can be asked.
int GetNumCopies(const wchar_t* printerName, DWORD jobId, mg::QueuedPages* pages = nullptr);

namespace mg {

// The pages of a job, asked anew. Records nothing and does not throw.
QueuedPages pagesInQueue(const wchar_t* printerName, DWORD jobId) noexcept;

// A user may act on his own jobs without having all rights on the printer. Then the spooler refuses the calls below,
// and the job stays in its queue. Both return the first error of the spooler, 0 when it did as requested.

// Deletes the port's job from the queue while an operation cleans up after its failure. Notes on the operation whether
// it went well; the note of a success names the document when one is given.
DWORD deleteQueuedJob(Operation& operation, tagPort& port, const wchar_t* documentName);

// Marks the port's job in the queue as sent. Notes on the operation what went wrong. Leaves the printer open, null when
// it could not be opened.
DWORD markQueuedJobSent(Operation& operation, tagPort& port, HANDLE& printer);

}  // namespace mg
