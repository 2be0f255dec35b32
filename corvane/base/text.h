#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Conversions between the wide text of this platform (UTF-16 on Windows, one character a code point elsewhere), UTF-16
// as it travels, and UTF-8 for logs and command lines. Every UTF-16 sequence survives the way through wide text and
// back, unpaired surrogates included.
namespace corvane {

// Calls use(unit) for each UTF-16 unit of the text; allocates nothing. A character that is no code point is U+FFFD.
template <class Use>
void forEachUtf16Unit(std::wstring_view text, Use&& use) {
  for (const wchar_t c : text) {
    auto point = static_cast<char32_t>(c);
    if (point > 0x10FFFF) point = 0xFFFD;
    if (sizeof(wchar_t) == 2 || point <= 0xFFFF) {
      use(static_cast<std::uint16_t>(point));
    } else {
      use(static_cast<std::uint16_t>(0xD800 + ((point - 0x10000) >> 10)));
      use(static_cast<std::uint16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
    }
  }
}

std::vector<std::uint16_t> toUtf16(std::wstring_view text);
std::wstring fromUtf16(const std::uint16_t* units, std::size_t count);

// An unpaired surrogate becomes U+FFFD.
std::string toUtf8(std::wstring_view text);
// A byte sequence that is not UTF-8 becomes U+FFFD.
std::wstring fromUtf8(std::string_view text);

// The code point that starts at the position, which then stands behind it, or U+FFFD for one byte that starts none.
char32_t nextUtf8(std::string_view text, std::size_t& at);
// One that is none becomes U+FFFD.
void appendUtf8(std::string& text, char32_t point);

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
