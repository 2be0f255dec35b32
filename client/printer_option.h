#pragma once

#include "protocol/printer.h"

#include <string_view>

namespace printclient {

// Reads "NAME,key=value,...". Keys: driver, comment, location, port, manufacturer, model, share (texts), format (raw,
// ps or pdf), default (yes or no), resolution (a number). Two commas stand for a comma in a name or value. Throws
// std::invalid_argument that says what is wrong and shows an example.
protocol::Printer parsePrinterOption(std::string_view text);

}  // namespace printclient
