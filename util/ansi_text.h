#pragma once

#include <cstddef>
#include <memory>

// Conversion between UTF-16 and the system's ANSI code page. The result is terminated. length counts characters of the
// source, which must not be 0. Throws UTL_Exception: mg::status::kNoMemory, or mg::status::kConversion when the text is
// longer than Windows converts (2^31 - 1 characters).
std::unique_ptr<char[]> ansiFromWide(const wchar_t* text, std::size_t length);
std::unique_ptr<wchar_t[]> wideFromAnsi(const char* text, std::size_t length);
