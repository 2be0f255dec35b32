#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mg::converter {

// Joins words into a command line that CommandLineToArgvW and the C run time take apart into the same words.
std::wstring argumentLine(const std::vector<std::wstring>& words);

}  // namespace mg::converter

namespace mg::converter {

// Writes any bytes as one word of a POSIX shell in ASCII characters only, so that no shell character in a name means
// anything and no code page on the way can change a byte. NUL and line ends at the end, which no file name has, do not
// survive.
std::string shellWord(std::string_view bytes);

// The Windows command line by which Wine starts `/bin/sh -c <script>` with exactly these words.
std::wstring shellCommandLine(const std::string& script);

}  // namespace mg::converter
