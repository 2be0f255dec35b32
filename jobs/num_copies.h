#pragma once

#include <windows.h>

// How many copies the spooler's job asks for: the device mode's count when the job has one above 0, otherwise 1, which
// is also the answer when the spooler cannot be asked. Does not throw.
int GetNumCopies(const wchar_t* printerName, DWORD jobId);
