#pragma once

#include <windows.h>

#include <string>

namespace mg::support {

// How a job ended, told by the print processor to the program that printed: Wine's spooler drops the processor's
// result. It travels in a small file named by the process and the job, because that spooler runs inside the printing
// process and numbers the jobs of each process anew.

// Fixes the folder of these files in the registry, where every printing process finds it.
void configureOutcomeFolder(const std::wstring& folder);

// Written once by the print processor: "printed", or which call failed.
void writeOutcome(DWORD job, const std::string& outcome);

// Reads and removes the outcome of a job of this process; an empty text when there is none.
std::string takeOutcome(DWORD job);

inline constexpr char kPrinted[] = "printed";

}  // namespace mg::support
