#pragma once

#include <functional>

namespace mg::converter {

// The program: converts the one file that its arguments name, within its limits. Gives the exit code (ExitCode); why a
// conversion failed stands on the standard output, in one line.
int runCommand(int count, wchar_t** arguments);

// Does the work and gives its exit code. A failure of any kind has a code other than 0 and says its line.
int exitCodeOf(const std::function<void()>& work);

}  // namespace mg::converter
