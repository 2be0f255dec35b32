#pragma once

#include "server/session_table.h"

#include <string>
#include <vector>

namespace aps {

// What of one session is kept at most, so that none takes the room of others.
inline constexpr std::size_t kSessionBytes = 128 * 1024;

// The sessions and their printers as the text that outlives this server, JSON in UTF-8, and back. Nothing in it is
// secret: whoever prints sees the same names. A session with a text that has no UTF-8 form is left out. Of one that is
// longer than kSessionBytes only the names and drivers of its printers are kept, or nothing where that is too long,
// too.
std::string toMemory(const std::vector<SessionTable::Status>& sessions);

// Throws std::runtime_error with what is wrong with the text, for a person. A session that had a client counts as
// without one since the time that is given.
std::vector<SessionTable::Status> fromMemory(const std::string& text, std::chrono::system_clock::time_point now);

}  // namespace aps
