#pragma once

#include "admin/base/output.h"
#include "admin/sessions/server_facts.h"
#include "admin/sessions/session_printers.h"

#include <string>

namespace admin {

// How sessions and what was done to them are said, for the commands that have to do with them.

Json sessionJson(const SessionFacts& session);
// "session 5: print client connected since ..., port CPP5 is there", then a line for each printer.
void saySession(const SessionFacts& session, Output& output);

Json changeJson(int session, const SessionChange& change);
// A line for each thing that was done.
void sayChange(int session, const SessionChange& change, Output& output);

}  // namespace admin
