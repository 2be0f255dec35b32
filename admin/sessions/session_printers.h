#pragma once

#include "admin/base/output.h"
#include "admin/spooler/spooler_printer.h"
#include "protocol/administration.h"

#include <string>
#include <vector>

namespace admin {

// What a session's printers are made with.
struct SessionOptions {
  std::wstring driver;     // when the client's own driver is not installed; empty: the registry's fallback
  std::wstring processor;  // empty: winprint
};

// A session's printer that cannot be had here.
struct RefusedPrinter {
  std::wstring name;  // on this server
  std::string why;    // a driver that is missing, or the spooler's own words
  std::string remedy;

  bool operator==(const RefusedPrinter&) const = default;
};

// What was done to a session's port and printers; empty lists when everything was as it should be.
struct SessionChange {
  bool portAdded = false;
  bool portRemoved = false;
  std::vector<std::wstring> added, changed, kept, removed;
  std::vector<RefusedPrinter> refused;

  // The printer is there now.
  bool isUp(const std::wstring& name) const;
  bool isNothing() const { return !portAdded && !portRemoved && added.empty() && changed.empty() && removed.empty(); }
};

// The printers that a session's client printers become here.
struct PrinterPlan {
  std::vector<SpoolerPrinter> printers;
  std::vector<RefusedPrinter> refused;
};

// What to do about a printer that was refused.
inline constexpr char kDriverRemedy[] =
    "Install the driver, or name one that is installed with --driver or in the registry value FallbackDriver of "
    "SOFTWARE\\Quillfern\\Marrowgate\\Printers.";

// Each has the name that the server gave, the session's port, and the client's driver if it is installed, otherwise the
// options' or the registry's. One for which neither is installed is refused.
PrinterPlan planPrinters(const protocol::ListedSession& session, const SessionOptions& options,
                         const std::vector<std::wstring>& installedDrivers);

// Makes each planned printer, or changes the one of that name which is there, and writes down what became of it. One
// that the spooler refuses keeps none of the others from coming up.
void makePrinters(const std::vector<SpoolerPrinter>& planned, const std::vector<SpoolerPrinter>& present,
                  SessionChange& change);

// Makes the session's port and printers as planned, and removes printers of its port that the client does not bring.
// Throws a Failure; calling it again goes on where it stopped.
SessionChange bringUp(const protocol::ListedSession& session, const SessionOptions& options);

// The session's printers that are not there although the session is up; the list is that of this machine's printers.
std::vector<std::wstring> missingHere(const protocol::ListedSession& session,
                                      const std::vector<SpoolerPrinter>& present);

// Removes the session's printers and its port; nothing when there is no port.
SessionChange takeDown(unsigned session);

// The name of the client's default printer here; empty when it has none.
std::wstring defaultPrinterOf(const protocol::ListedSession& session);

// How sessions and what was done to them are said, for the commands that have to do with them.

Json sessionJson(const protocol::ListedSession& session);
// "session 5: print client connected since ..., port CPP5 is there", then a line for each printer.
void saySession(const protocol::ListedSession& session, Output& output);

Json changeJson(int session, const SessionChange& change);
// A line for each thing that was done.
void sayChange(int session, const SessionChange& change, Output& output);

}  // namespace admin
