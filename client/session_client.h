#pragma once

#include "client/printer_option.h"
#include "corvane/component.h"
#include "corvane/connection.h"

#include <string>
#include <vector>

namespace printclient {

// What the application server said to a registration.
struct Registration {
  std::vector<std::wstring> localNames;  // of the printers, in their order
  std::wstring refusal;                  // empty when accepted
  bool accepted() const { return refusal.empty(); }
};

// The class of the client's half of a registration; see programs/session_registration.h.
void registerSessionClientClass();

// Brings the session's printers along on that connection; they stay for as long as it lasts. Throws CS_Exception when
// the server cannot be asked.
Registration bringPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                           const std::vector<PrinterOption>& printers);

}  // namespace printclient
