#pragma once

#include <chrono>
#include <string_view>

namespace admin {

// The time that a person means: "now", "today" (its midnight), "yesterday" (that of the day before), "90m", "2h" or
// "3d" (so long ago), a day as "2026-01-31", or a minute as "2026-01-31 14:30". Days and clock times are those of this
// machine. Throws std::invalid_argument that says what is wrong and shows examples.
std::chrono::system_clock::time_point parseMoment(std::string_view text, std::chrono::system_clock::time_point now);

}  // namespace admin
