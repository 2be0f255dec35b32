#pragma once

#include "admin/base/output.h"
#include "protocol/administration.h"

#include <vector>

namespace admin {

// What the server holds for the print client of a session that is away, for the commands.

// Null when nothing is held for that session, or the server does not tell.
const protocol::HeldForSession* heldFor(const protocol::ServerStatus& facts, int session);

// How many, their bytes and since when the oldest; null when the server does not tell.
Json heldJson(const protocol::ServerStatus& facts, int session);

// "2 jobs are held, 10 kB, the oldest since 2026-01-31 23:59:59".
std::string heldText(const protocol::HeldForSession& held);

// For sessions that the server does not list, because it has forgotten them.
std::vector<protocol::HeldForSession> heldForOthers(const protocol::ServerStatus& facts);

}  // namespace admin
