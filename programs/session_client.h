#pragma once

#include "corvane/connection.h"
#include "programs/session_registration.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace programs {

// A printer that a session's client brings along. A plain value.
struct BroughtPrinter {
  std::array<std::optional<std::wstring>, kPrinterTexts> texts;  // the first is the name
  bool isDefault = false;
  int format = 1;  // 1 raw data, 2 PostScript, 3 PDF
  int resolution = 0;
};

// What the application server said to a registration.
struct Registration {
  std::vector<std::wstring> localNames;  // of the printers, in their order
  std::wstring refusal;                  // empty when accepted
  bool accepted() const { return refusal.empty(); }
};

// The class of the client's half of a registration; see session_registration.h.
void registerSessionClientClass();

// Brings the session's printers along on that connection; they stay for as long as it lasts. Throws CS_Exception when
// the server cannot be asked.
Registration bringPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                           const std::vector<BroughtPrinter>& printers);

}  // namespace programs
