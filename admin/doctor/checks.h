#pragma once

#include "admin/base/places.h"
#include "admin/spooler/spooler_printer.h"
#include "protocol/administration.h"

#include <string>
#include <vector>

namespace admin {

// Examinations of what is installed, for the doctor: each gives what it found in words and throws a Failure.

std::string checkModuleFile(const Places& places);
// Loads it with what it depends on, and initialises it as a spooler does.
std::string checkModuleLoads();
std::string checkRegistration();
// Every value that the module reads: its type, and whether it makes sense.
std::string checkRegistry(const Places& places);
// The key that the monitor proves itself with, where there is one.
std::string checkKeyFile(const Places& places);
// Makes, writes, reads and deletes a file in the folder for temporary files, and looks at the space there.
std::string checkTemporaryFolder();
// Converts a page of PostScript.
std::string checkConverter(const Places& places);

// Examines the drivers of the sessions' printers that want PDF. Converted is only what begins as PostScript, and what a
// driver sends shows with the first document; but the names of many say that it is another language. Gives what it
// found in words and throws a Failure.
std::string checkDrivers(const std::vector<protocol::ListedSession>& sessions,
                         const std::vector<SpoolerPrinter>& present);

// The language other than PostScript that a driver of that name sends; empty when its name names none.
std::string otherLanguageOf(const std::wstring& driver);

// What the test page is printed with.
struct TestPageOptions {
  int serverPort = 0;      // 0: the registry's
  std::wstring driver;     // empty: the first one that is installed
  std::wstring processor;  // empty: winprint
  std::string keyFile;     // of the test session; empty: none
};

// Prints a page the whole way round: a session of this program's own, its port and printer, the spooler, the monitor,
// the server, and back here, where it is compared. Everything is removed again. Gives what happened in words; throws a
// Failure.
std::string printTestPage(const protocol::ServerStatus& server, const TestPageOptions& options);

}  // namespace admin
