#pragma once

#include "admin/server_facts.h"
#include "admin/spooler_printer.h"

#include <string>
#include <vector>

namespace admin {

// Examines the drivers of the sessions' printers that want PDF. Converted is only what begins as PostScript, and what a
// driver sends shows with the first document; but the names of many say that it is another language. Gives what it
// found in words and throws a Failure.
std::string checkDrivers(const std::vector<SessionFacts>& sessions, const std::vector<SpoolerPrinter>& present);

// The language other than PostScript that a driver of that name sends; empty when its name names none.
std::string otherLanguageOf(const std::wstring& driver);

}  // namespace admin
