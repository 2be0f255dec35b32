#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class CS_Exception;

namespace programs {

// Longest text that goes into one line, in bytes; the rest is replaced by "...".
inline constexpr std::size_t kLineBytes = 4000;

// A text that came from elsewhere, as UTF-8 fit for one line of a log or a terminal (corvane/base/text.h).
std::string oneLine(std::wstring_view text);
// The same between quotation marks.
std::string quoted(std::wstring_view text);

// What a framework exception says, as UTF-8 text on one line: the message of its number, then its detail.
std::string describe(const CS_Exception& failure);

}  // namespace programs
