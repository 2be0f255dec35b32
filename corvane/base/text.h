#pragma once

#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Conversions between the wide text of this platform (UTF-16 on Windows, one character a code point elsewhere), UTF-16
// as it travels, and UTF-8 for logs and command lines. Every UTF-16 sequence survives the way through wide text and
// back, unpaired surrogates included.
namespace corvane {

// Calls use(unit) for each UTF-16 unit of the text; allocates nothing. A character that is not a code point becomes
// U+FFFD.
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
// A value that is not a code point becomes U+FFFD.
void appendUtf8(std::string& text, char32_t point);

// Text that came from elsewhere, made fit for a line of a log or of a terminal: it cannot begin a line of its own,
// control the terminal, hide text, or show letters in another order than they are stored. Line breaks and tabs become
// blanks; every other control character, characters without a width, those that change the direction of writing and
// values that are not characters become "?". Bytes that are not UTF-8 become U+FFFD, and so do unpaired surrogates.
std::string printable(std::string_view utf8);
std::string printable(std::wstring_view text);
// The same in place, for a text that there may be no memory for. It grows shorter if anything.
void makePrintable(wchar_t* text) noexcept;

// Whether a code point stays as it is.
bool isPrintable(char32_t point);

// printf-style formatting of wide text with wide text for %s on every platform; a null text is written as "(null)".

// Formats into the buffer of that many characters, always terminated; what does not fit is cut. Never throws or
// allocates. Returns whether everything fitted.
bool formatWide(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list arguments) noexcept;

// The formatted text, cut at kMaxFormatted characters. Throws std::bad_alloc.
std::wstring formatText(const wchar_t* format, ...);

inline constexpr std::size_t kMaxFormatted = 32768;

// "2026-03-01 12:30:05.123 +0100" into the buffer, cut if it is too small and always terminated when there is room for
// that; gives the number of characters. Allocates nothing.
std::size_t writeLocalTime(char* buffer, std::size_t size, std::chrono::system_clock::time_point time);

// The same without the fraction of the second: "2026-03-01 12:30:05 +0100".
std::string localTimeText(std::chrono::system_clock::time_point time);

}  // namespace corvane
