#pragma once

#include "admin/base/output.h"
#include "admin/sessions/driver_choice.h"
#include "admin/spooler/spooler_printer.h"
#include "protocol/administration.h"

#include <string>
#include <vector>

namespace admin {

// Options for the printers of a session.
struct SessionOptions {
  std::wstring driver;     // in place of the registry's FallbackDriver; empty: that one
  std::wstring processor;  // empty: winprint
};

// A session's printer that is not available on this server.
struct RefusedPrinter {
  std::wstring name;  // on this server
  std::string why;    // no driver that can be used, or the error of the spooler
  std::string remedy;

  bool operator==(const RefusedPrinter&) const = default;
};

// The changes to a session's port and printers; all lists are empty when nothing had to change.
struct SessionChange {
  bool portAdded = false;
  bool portRemoved = false;
  std::vector<std::wstring> added, changed, kept, removed;
  std::vector<RefusedPrinter> refused;

  // The printer exists now.
  bool isUp(const std::wstring& name) const;
  bool isNothing() const { return !portAdded && !portRemoved && added.empty() && changed.empty() && removed.empty(); }
};

// The local printers for a session's client printers.
struct PrinterPlan {
  std::vector<SpoolerPrinter> printers;
  std::vector<RefusedPrinter> refused;
};

// The remedy for a printer without a driver that can be used.
inline constexpr char kDriverRemedy[] =
    "Install the driver, or name one that is installed and sends PostScript: mgprintmon install --driver NAME; "
    "\"mgprintmon drivers\" shows which can be used.";

// Each printer has the name that the server assigned, the session's port, and the driver of chooseDriver(). A printer
// that gets none is refused.
PrinterPlan planPrinters(const protocol::ListedSession& session, const SessionOptions& options,
                         const ServerDrivers& drivers);

// Makes each planned printer, or changes the existing one of that name, and records the result in `change`. A printer
// that the spooler refuses does not prevent the others.
void makePrinters(const std::vector<SpoolerPrinter>& planned, const std::vector<SpoolerPrinter>& present,
                  SessionChange& change);

// Makes the session's port and printers as planned, and removes printers of its port that the client does not bring.
// Throws a Failure; another call continues where it stopped.
SessionChange bringUp(const protocol::ListedSession& session, const SessionOptions& options);

// The session's printers that are missing in `present`, the printers of this machine.
std::vector<std::wstring> missingHere(const protocol::ListedSession& session,
                                      const std::vector<SpoolerPrinter>& present);

// Removes the session's printers and its port; does nothing when there is no port.
SessionChange takeDown(unsigned session);

// The local name of the client's default printer; empty when it has none.
std::wstring defaultPrinterOf(const protocol::ListedSession& session);

// Sessions and changes as text and JSON, for the commands.

Json sessionJson(const protocol::ListedSession& session);
// "session 5: print client connected since ...", then a line for each printer.
void saySession(const protocol::ListedSession& session, Output& output);

Json changeJson(int session, const SessionChange& change);
// A line for each change.
void sayChange(int session, const SessionChange& change, Output& output);

}  // namespace admin
