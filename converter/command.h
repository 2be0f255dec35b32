#pragma once

#include <functional>

namespace mg::converter {

// The program: converts the one file that its arguments name, within its limits; or says its name and version, when
// that argument is "--version". Returns the exit code (ExitCode) and writes the reason for a failure to standard
// output, in one line.
int runCommand(int count, wchar_t** arguments);

// Does the work and returns its exit code. Every failure has a code other than 0 and writes one line.
int exitCodeOf(const std::function<void()>& work);

}  // namespace mg::converter
