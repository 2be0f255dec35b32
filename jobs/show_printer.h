#pragma once

#include <windows.h>

// Whether a printer is to be shown in a session: 1 when the session's client has a printer of exactly that name, and
// also when the application server cannot tell; 0 otherwise, and for a session without a port. The session's list is
// asked for at most every 500 ms and kept with its port meanwhile. Exported; any thread may call; no exception leaves
// it. Waits up to 120000 ms for the server.
extern "C" BOOL WINAPI ShowPrinter(unsigned int sessionId, const wchar_t* printerName);
