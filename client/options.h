#pragma once

#include "client/printer_option.h"

#include <string>
#include <vector>

namespace printclient {

// What the command line of printclient says.
struct Options {
  std::string host = "127.0.0.1";  // a name or an address, without brackets
  int port = 4711;
  int session = 0;
  std::string keyFile;  // empty: the server wants no key
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
