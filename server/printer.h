#pragma once

#include "programs/session_registration.h"

#include <array>
#include <optional>
#include <string>

namespace aps {

// A printer that a session's client brings along, as the client describes it. A plain value.
struct Printer {
  // The eight texts in the order of the wire; the first is the printer's name, the fourth its driver name.
  std::array<std::optional<std::wstring>, programs::kPrinterTexts> texts;
  bool flag = false;
  int value = 0;  // 1 raw data, 2 PostScript, 3 PDF
  int secondValue = 0;

  const std::wstring& name() const {
    static const std::wstring kNone;
    return texts[0] ? *texts[0] : kNone;
  }
};

}  // namespace aps
