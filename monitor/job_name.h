#pragma once

#include "util/utl_string.h"

#include <windows.h>

namespace mg {

// The name under which a job travels and its files are found: the printer's name with every character that a file name
// cannot have, and "@" and "+", replaced by "-", then " - Job #" and the job's number. "\\srv\HP+1" with job 17 gives
// "--srv-HP-1 - Job #17". The printer's name is shorter than kPortNameSize characters.
UTL_String buildJobName(const wchar_t* printerName, DWORD jobId);

}  // namespace mg
