#pragma once

#include "corvane/components/connection.h"
#include "protocol/registration.h"

#include <vector>

namespace programs {

// Registers the class of the client's half of a registration, for a program that needs nothing of it.
void registerSessionClientClass();

// Registers the session's printers with the server of that connection; the server has them for as long as it lasts.
// Throws CS_Exception when the server cannot be asked.
protocol::Registration::Answer registerPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                                                const std::vector<protocol::Printer>& printers);

}  // namespace programs
