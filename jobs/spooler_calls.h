#pragma once

#include <windows.h>

// Runs the spooler's own initialisation on behalf of the client whose remote call the thread is serving, and returns
// its result; 0, with the reason recorded, when it could not be called. The impersonation ends before this returns.
// Does not throw.
DWORD InitSpooler();

// How many copies the spooler's job asks for: the device mode's count when the job has one above 0, otherwise 1, which
// is also the answer when the spooler cannot be asked. Does not throw.
int GetNumCopies(const wchar_t* printerName, DWORD jobId);
