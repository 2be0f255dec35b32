#pragma once

#include <windows.h>

// Runs the spooler's own initialisation on behalf of the client whose remote call the thread is serving, and returns
// its result; 0, with the reason recorded, when it could not be called. The impersonation ends before this returns.
// Does not throw.
DWORD InitSpooler();
