#pragma once

#include "corvane/components/connection.h"
#include "protocol/registration.h"

#include <vector>

namespace programs {

// The class of the client's half of a registration.
void registerSessionClientClass();

// Brings the session's printers along on that connection; they stay for as long as it lasts. Throws CS_Exception when
// the server cannot be asked.
protocol::Registration::Answer bringPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                                             const std::vector<protocol::Printer>& printers);

}  // namespace programs
