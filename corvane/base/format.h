#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace corvane {

// printf-style formatting of wide text with wide text for %s on every platform; a null text is written as "(null)".

// Formats into the buffer of that many characters, always terminated; what does not fit is cut. Never throws or
// allocates. Returns whether everything fitted.
bool formatWide(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list arguments) noexcept;

// The formatted text, cut at kMaxFormatted characters. Throws std::bad_alloc.
std::wstring formatText(const wchar_t* format, ...);

inline constexpr std::size_t kMaxFormatted = 32768;

}  // namespace corvane
