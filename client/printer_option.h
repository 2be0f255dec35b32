#pragma once

#include "client/sinks/printer/printer_target.h"
#include "protocol/printer.h"

#include <string_view>

namespace printclient {

// What one --printer says.
struct PrinterOption {
  protocol::Printer printer;
  PrinterTarget target;
};

// Reads "NAME,key=value,...". Keys: driver, comment, location, port, manufacturer, model, share (texts), format (raw,
// ps or pdf), default (yes or no), resolution (a number), and queue or uri, the printer that its jobs go to. Two commas
// stand for a comma in a name or value. Throws std::invalid_argument that says what is wrong and shows an example.
PrinterOption parsePrinterOption(std::string_view text);

}  // namespace printclient
