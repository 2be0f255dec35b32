#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Conversions between the wide text of this platform (UTF-16 on Windows, one character a code point elsewhere), UTF-16
// as it travels, and UTF-8 for logs and command lines. Every UTF-16 sequence survives the way through wide text and
// back, unpaired surrogates included.
namespace corvane {

std::vector<std::uint16_t> toUtf16(std::wstring_view text);
std::wstring fromUtf16(const std::uint16_t* units, std::size_t count);

// An unpaired surrogate becomes U+FFFD.
std::string toUtf8(std::wstring_view text);
// A byte sequence that is not UTF-8 becomes U+FFFD.
std::wstring fromUtf8(std::string_view text);

}  // namespace corvane
