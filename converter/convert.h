#pragma once

#include "converter/job_paths.h"
#include "converter/limits.h"

namespace mg::converter {

// Converts paths.input into paths.output within the limits and returns the number of pages. The output appears under
// its name only when it is whole; a file of that name from before is removed first, so that it can never be taken for
// the result. Removes whatever it made, also when it fails with a ConversionError.
int convert(const JobPaths& paths, const Limits& limits);

}  // namespace mg::converter
