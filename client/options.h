#pragma once

#include "protocol/printer.h"

#include <string>
#include <string_view>
#include <vector>

namespace printclient {

// Reads "NAME,key=value,...". Keys: driver, comment, location, port, manufacturer, model, share (texts), format (raw,
// ps or pdf), default (yes or no), resolution (a number). Two commas stand for a comma in a name or value. Throws
// std::invalid_argument that says what is wrong and shows an example.
protocol::Printer parsePrinterOption(std::string_view text);

// What the command line of printclient says.
struct Options {
  std::string host = "127.0.0.1";  // a name or an address, without brackets
  int port = 4711;
  std::vector<std::string> invitations;  // to redeem first: lines, or names of files that hold one
  bool usesTls = false;                  // always, but for a server on this machine that is not asked for it
  int session = 0;                       // 0: the servers of which invitations were redeemed
  std::string keyFile;                   // empty: the server wants no key
  std::vector<protocol::Printer> printers;
  std::string output;
  int pace = 1;  // divides the times of corvane::Patience; not shown, for tests
};

// The outcome of reading a command line: go on when exitCode is negative, otherwise end with it after saying message
// on the standard output (code 0, such as help) or the standard error output.
struct ParsedOptions {
  Options options;
  int exitCode = -1;
  std::string message;
};

ParsedOptions parseOptions(std::vector<std::string> arguments);

}  // namespace printclient
