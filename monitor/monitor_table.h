#pragma once

#include <windows.h>
#include <winspool.h>
// Needs the types of winspool.h.
#include <winsplp.h>

// The operations that the spooler may call, constant and alive as long as the module. Its size tells the spooler to
// read exactly 19 slots.
extern const MONITOR2 g_monitorTable;
