#pragma once

#include <string>
#include <string_view>

namespace corvane {

// Text that came from elsewhere, made fit for a line of a log or of a terminal: nobody can begin a line of his own with
// it, steer the terminal, hide something, or let letters appear in another order than they are stored. Line breaks and
// tabs become blanks; every other control character, what has no width, what turns the direction of writing and
// what is no character becomes "?". Bytes that are no UTF-8 become U+FFFD, and so do unpaired surrogates.
std::string printable(std::string_view utf8);
std::string printable(std::wstring_view text);
// The same in place, for a text that there may be no memory for. It grows shorter if anything.
void makePrintable(wchar_t* text) noexcept;

// Whether a code point stays as it is.
bool isPrintable(char32_t point);

}  // namespace corvane
