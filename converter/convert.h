#pragma once

#include "converter/limits.h"

#include <string>

namespace mg::converter {

// The files of one conversion, as full paths.
struct JobPaths {
  // The PostScript file to convert.
  std::wstring input;
  // The PDF in the same directory with the same base name.
  std::wstring output;
};

// Derives the paths from the one argument of the command line. An empty name or one that does not end in ".ps" (in
// any letter case) is a ConversionError (kUsage): the output would be the input itself or a guess.
JobPaths pathsForInput(const std::wstring& argument);

// The line that is printed for a wrong command line.
extern const wchar_t kUsageText[];

// Converts paths.input into paths.output within the limits and returns the number of pages. The output appears under
// its name only when it is complete; an earlier file of that name is removed first, so that it can never be mistaken
// for the result. All temporary files are removed, also after a ConversionError.
int convert(const JobPaths& paths, const Limits& limits);

}  // namespace mg::converter
