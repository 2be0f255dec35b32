#pragma once

#include <string>
#include <vector>

namespace mg::converter {

// Joins words into a command line that CommandLineToArgvW and the C run time take apart into the same words.
std::wstring argumentLine(const std::vector<std::wstring>& words);

}  // namespace mg::converter
