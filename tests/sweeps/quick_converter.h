#pragma once

#include <windows.h>

// Does for the caller of CreateProcessA what the stand-in converter does for a document that it takes, without a
// process: writes the PDF beside the file that the command line names, and hands out two objects that have ended. For
// scenarios that convert hundreds of times and are not about the process. Allocates nothing.
namespace quick_converter {

BOOL convert(const char* commandLine, PROCESS_INFORMATION* process);

}  // namespace quick_converter
