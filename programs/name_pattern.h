#pragma once

#include <string_view>

namespace programs {

// Whether a name is one of those that the pattern stands for: "*" in it is any text, "?" one character, and everything
// else itself, with its case. Both are UTF-8, and "?" is one character of it.
bool fitsPattern(std::string_view name, std::string_view pattern);

}  // namespace programs
