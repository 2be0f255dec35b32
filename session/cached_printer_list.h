#pragma once

#include <windows.h>

// The names of a session's client printers, for callers in the spooler's process: asked for once, kept with the
// session's port until that is removed, and answered from there. Both are exported, may be called from any thread, and
// let no exception out. The first caller for a session waits up to 120000 ms for the server, and those for the same
// session with it.

// Makes a TObjectMap<UTL_String, void*> with the names as keys, which the caller gives back with
// ReleaseCachedPrinterList. Returns 1 when the names were delivered, otherwise 0; the map is made also then, except for
// session 0, which leaves *list untouched. A first request that the server refused is not repeated: later calls deliver
// no names.
extern "C" BOOL WINAPI GetCachedPrinterList(unsigned int sessionId, void** list);

// Frees what GetCachedPrinterList made and sets *list to null; does nothing when it is null already.
extern "C" void WINAPI ReleaseCachedPrinterList(void** list);
