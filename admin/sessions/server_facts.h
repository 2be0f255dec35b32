#pragma once

#include "protocol/administration.h"

namespace admin {

// What the application server says about itself, as it travels. Times are UTC, as texts; a person gets them as
// programs/local_time.h says.
using ClientPrinterFacts = protocol::ListedPrinter;
using SessionFacts = protocol::ListedSession;
using ServerFacts = protocol::ServerStatus;
using Notice = protocol::Notice;
using Notices = protocol::Notices::Answer;

}  // namespace admin
