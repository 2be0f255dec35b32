#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

class CS_Exception;

namespace programs {

// Longest text that goes into one line, in bytes; the rest is replaced by "...".
inline constexpr std::size_t kLineBytes = 4000;

// A text from elsewhere, as UTF-8 fit for one line of a log or a terminal (corvane/base/text.h).
std::string oneLine(std::wstring_view text);
// The same between quotation marks.
std::string quoted(std::wstring_view text);

// What a framework exception says, as UTF-8 text on one line: the message of its number, then its detail.
std::string describe(const CS_Exception& failure);

// The last line of the text that holds more than blanks, without blanks at its ends.
std::string lastLine(const std::string& text);

// A time as the wire has it: "2026-01-31T23:59:59Z".
std::wstring utcText(std::chrono::system_clock::time_point time);
// Such a time as a person reads it: local, with its offset (corvane/base/text.h). A text that is not a time is
// returned as one line.
std::string localTime(std::wstring_view utc);

// File names are UTF-8 text everywhere in the programs; only here do they become what the platform wants.
std::filesystem::path toPath(const std::string& utf8);
std::string fromPath(const std::filesystem::path& path);

}  // namespace programs
