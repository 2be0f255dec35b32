#pragma once

#include "programs/session_registration.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace printclient {

// A printer that this client brings along, as it was given on the command line. A plain value.
struct PrinterOption {
  std::array<std::optional<std::wstring>, programs::kPrinterTexts> texts;  // the first is the name
  bool isDefault = false;
  int format = 1;  // 1 raw data, 2 PostScript, 3 PDF
  int resolution = 0;
};

// Reads "NAME,key=value,...". Keys: driver, comment, location, port, manufacturer, model, share (texts), format (raw,
// ps or pdf), default (yes or no), resolution (a number). Two commas stand for a comma in a name or value. Throws
// std::invalid_argument that says what is wrong and shows an example.
PrinterOption parsePrinterOption(std::string_view text);

}  // namespace printclient
