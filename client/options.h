#pragma once

#include "client/printer_option.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace printclient {

// What the command line of printclient says.
struct Options {
  std::string host = "127.0.0.1";  // a name or an address, without brackets
  int port = 4711;
  int server = 0;      // which of those that are served
  std::string label;   // in front of what is said about this server, where there are several; otherwise empty
  std::wstring place;  // what its printers' names end with there, " on HOST"; otherwise empty
  std::vector<std::string> invitations;     // to redeem first: lines, or names of files that hold one
  bool usesTls = false;                     // always, but for a server on this machine that is not asked for it
  std::uint64_t rate = 0;                   // bytes a second that such a server is to send at most; 0 for any
  int session = 0;                          // 0: the servers of which invitations were redeemed
  std::string keyFile;                      // empty: the server wants no key
  std::vector<protocol::Printer> printers;  // empty: those that the person has, see PersonsPrinters
  bool printersAreOwn = false;              // those that the person has; they are followed
  std::vector<std::string> only;
  std::vector<std::string> except;
  std::map<std::wstring, PrinterTarget> targets;  // of the printers that say one, by their names
  std::string output;                             // empty: no folder is wanted
  std::string command;                            // empty: no program is wanted
  std::vector<std::string> commandArguments;
  int commandLimit = 0;    // seconds
  bool showsPage = false;  // of the print client that runs already; nothing else is done
  bool hasPage = true;
  bool hasNotices = true;  // of the desktop
  int keptDocuments = 20;  // for the page; 0 for none
  int pace = 1;            // divides the times of corvane::Patience; not shown, for tests

  // What a printer of the person is called on this server, and wherever its jobs are spoken of: its own name, which
  // where there are several servers says which one. A name that would be longer than a server takes stays as it is.
  std::wstring nameThere(const std::wstring& printer) const;
};

// Gives each of several servers its label and place; the place is its host, with the port where two have the same one.
void tellApart(std::vector<Options>& servers);

// The outcome of reading a command line: go on when exitCode is negative, otherwise end with it after saying message
// on the standard output (code 0, such as help) or the standard error output.
struct ParsedOptions {
  Options options;
  int exitCode = -1;
  std::string message;
};

ParsedOptions parseOptions(std::vector<std::string> arguments);

}  // namespace printclient
