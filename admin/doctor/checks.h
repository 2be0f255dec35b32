#pragma once

#include "admin/base/places.h"
#include "admin/base/service.h"
#include "admin/sessions/driver_choice.h"
#include "admin/spooler/spooler_printer.h"
#include "protocol/administration.h"

#include <optional>
#include <string>
#include <vector>

namespace admin {

inline constexpr wchar_t kSpoolerService[] = L"Spooler";

// What installing has recorded of the two services: those that it has made, aps first.
std::vector<std::wstring> installedServices(const Places& places);
// The folders that these keep things in, the outermost first.
std::vector<std::wstring> serviceFolders(const Places& places);

// A number in the registry that the module and the converter take within bounds only.
struct RegistryNumber {
  std::wstring key, name;
  DWORD least = 0;
  DWORD most = 0xFFFFFFFF;
  DWORD otherwise = 0;  // what holds without it

  // The value in words when it is of another type or out of bounds; empty when it is well or not there.
  std::string wrongValue() const;
};
std::vector<RegistryNumber> registryNumbers(const Places& places);

// The checks of the doctor: each returns its finding as text, or throws a Failure.

std::string checkModuleFile(const Places& places);
// Loads the module with its dependencies and initialises it as a spooler does.
std::string checkModuleLoads();
// The spooler knows the monitor, and as the module that installing puts into the system folder.
std::string checkRegistration();
// Checks type and range of every value that the module reads.
std::string checkRegistry(const Places& places);
// Checks the key with which the monitor authenticates, if there is one.
std::string checkKeyFile(const Places& places);
// Checks the services that this installation has made: both run, and nobody else gets at what they keep.
std::string checkServices(const Places& places);
// Checks that the spooler is there, may run, and runs unless it is a part of the programs that print.
std::string checkSpooler(const std::optional<ServiceFacts>& facts, bool printsHere);
// Checks that no queue of a printer on these ports stands still: paused, offline, or deleted with a job left in it.
std::string checkQueues(const std::vector<std::wstring>& ports, const std::vector<SpoolerPrinter>& present);
// Writes, reads and deletes a file in the folder for temporary files, and checks its free space.
std::string checkTemporaryFolder();
// Converts a page of PostScript.
std::string checkConverter(const Places& places);

// Checks the drivers of the sessions' printers that want PDF. Only PostScript is converted; what a driver sends shows
// only with the first document, but the names of many drivers tell that it is another language.
std::string checkDrivers(const std::vector<protocol::ListedSession>& sessions,
                         const std::vector<SpoolerPrinter>& present);

// Checks that the drivers that are set for printers of sessions can be used, that every printer of a connected session
// gets one, and that none of those that are here sends XPS.
std::string checkServerDrivers(const std::vector<protocol::ListedSession>& sessions,
                               const std::vector<SpoolerPrinter>& present, const ServerDrivers& drivers);

// The language other than PostScript that the driver's name mentions; empty when it mentions none.
std::string otherLanguageOf(const std::wstring& driver);

// How the test page is printed.
struct TestPageOptions {
  int serverPort = 0;      // 0: the registry's
  std::wstring driver;     // empty: FallbackDriver, or the first one that can be used
  std::wstring processor;  // empty: winprint
  std::string keyFile;     // of the test session; empty: none
};

// Prints a page end to end: makes a test session with its port and printer, prints through the spooler, the monitor and
// the server back into this process, and compares the result. Everything is removed again. Returns the result as text;
// throws a Failure.
std::string printTestPage(const protocol::ServerStatus& server, const TestPageOptions& options);

}  // namespace admin
