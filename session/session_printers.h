#pragma once

#include <windows.h>

// The names of a session's client printers, for callers in the spooler's process: requested once, kept with the
// session's port until that is removed, and answered from there. The functions are exported, may be called from any
// thread, and let no exception out. The first caller for a session waits up to 120000 ms for the server, and those for
// the same session with it.

// Makes a TObjectMap<UTL_String, void*> with the names as keys, which the caller gives back with
// ReleaseCachedPrinterList. Returns 1 when the names were delivered, otherwise 0; the map is made also then, except for
// session 0, which leaves *list untouched. A first request that the server refused is not repeated: later calls deliver
// no names.
extern "C" BOOL WINAPI GetCachedPrinterList(unsigned int sessionId, void** list);

// Frees what GetCachedPrinterList made and sets *list to null; does nothing when it is null already.
extern "C" void WINAPI ReleaseCachedPrinterList(void** list);

// Whether a printer is to be shown in a session: 1 when the session's client has a printer of exactly that name, and
// also when the application server cannot tell; 0 otherwise, and for a session without a port. The session's list is
// requested at most every 500 ms and kept with its port meanwhile.
extern "C" BOOL WINAPI ShowPrinter(unsigned int sessionId, const wchar_t* printerName);
