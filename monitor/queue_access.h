#pragma once

#include <windows.h>

class Operation;
struct tagPort;

namespace mg {

// Opens the port's local printer with all rights, as needed to act on a job in its queue; null when that fails.
HANDLE openQueue(tagPort& port);

// Acts on the port's job in the queue of an open printer: JOB_CONTROL_DELETE or JOB_CONTROL_SENT_TO_PRINTER.
bool controlJob(HANDLE printer, const tagPort& port, DWORD command);

// Deletes the port's job from the queue while an operation cleans up after its failure. Notes on the operation whether
// it went well; the note of a success names the document when one is given.
void deleteQueuedJob(Operation& operation, tagPort& port, const wchar_t* documentName);

}  // namespace mg
