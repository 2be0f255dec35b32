#pragma once

#include <string>
#include <vector>

namespace mg::converter {

// Joins words into a command line that CommandLineToArgvW and the C runtime split into the same words. Safe from any
// thread; throws std::bad_alloc only.
std::wstring argumentLine(const std::vector<std::wstring>& words);

}  // namespace mg::converter
