#pragma once

#include "admin/base/files.h"
#include "admin/base/places.h"

#include <optional>
#include <string>
#include <vector>

namespace admin {

// What to install, and how.
struct InstallRequest {
  std::wstring from;                   // the folder that holds the module and the converter
  std::optional<unsigned> serverPort;  // without it the present one stays, or the default one is written
  std::wstring logFile;                // empty: the present one stays, or one below the root is written
  std::wstring keyFile;                // empty: the present one stays, or none
  std::wstring driver;                 // of printers whose own is not installed; empty: the present one stays, or none
  std::wstring driverPackage;          // adds that driver unless it is installed; empty: it must be
  bool force = false;                  // an older module may replace a newer one
  // Unless they are set, a new installation has services and a key of the monitor, and one that is there keeps what it
  // has: it was made by hand or by an older version, and goes on as it is.
  std::optional<bool> services;
  std::optional<bool> keys;
  bool restartsSpooler = false;  // the spooler may be stopped while a module that it holds is replaced
  bool serverAsSystem = false;   // the server may start programs in sessions
  std::wstring clientAddress;  // where the server serves print clients on other machines; empty: the present one stays
  std::wstring publicAddress;  // how they reach it; likewise
  bool onlyThisMachine = false;  // it serves none
};

struct InstallResult {
  std::vector<std::string> done;  // the steps that were performed; empty when everything was in place
  std::optional<FileVersion> version;
  bool hasServices = false;
  bool hasKey = false;        // the monitor proves itself, and aps wants that of its peers
  bool wasInstalled = false;  // an earlier installation was completed or replaced
};

// Makes the installation on this machine match the request, completely or not at all; may be repeated. Throws a Failure
// after undoing its steps.
InstallResult install(const Places& places, const InstallRequest& request);

// What was removed, as text; empty when nothing is installed. Folders and keys that contain something else stay, and
// are listed in `kept`.
struct RemovalResult {
  std::vector<std::string> done;
  std::vector<std::string> kept;
};

// Removes the installation from this machine: what its record lists, and what the module and administrators have added
// to its own keys. Refuses while printers use the monitor's ports, and when there is no record; with `force` it removes
// these printers and ports first, and the files and keys with known names. Throws a Failure; another call continues
// where it stopped.
RemovalResult uninstall(const Places& places, bool force);

}  // namespace admin
