#pragma once

#include <chrono>
#include <cstddef>
#include <string>

// Times as a person reads them, in every log and on every terminal of this system: local time with its offset from UTC,
// so that lines of two machines, or of both sides of a change of the clocks, can be put in order. What travels between
// processes stays UTC.
namespace corvane {

// "2026-03-01 12:30:05.123 +0100" into the buffer, cut if it is too small and always terminated when there is room for
// that; gives the number of characters. Allocates nothing.
std::size_t writeLocalTime(char* buffer, std::size_t size, std::chrono::system_clock::time_point time);

// The same without the fraction of the second: "2026-03-01 12:30:05 +0100".
std::string localTimeText(std::chrono::system_clock::time_point time);

}  // namespace corvane
