#pragma once

#include "admin/base/files.h"
#include "admin/base/places.h"

#include <optional>
#include <string>
#include <vector>

namespace admin {

inline constexpr unsigned kDefaultServerPort = 4711;

// What to install, and how.
struct InstallRequest {
  std::wstring from;                   // the folder that holds the module and the converter
  std::optional<unsigned> serverPort;  // without it the present one stays, or the default one is written
  std::wstring logFile;                // empty: the present one stays, or one below the root is written
  std::wstring keyFile;                // empty: the present one stays, or none
  bool force = false;                  // an older module may replace a newer one
};

struct InstallResult {
  std::vector<std::string> done;  // what was done, in words; empty when everything was in place
  std::optional<FileVersion> version;
  bool wasInstalled = false;  // an earlier installation was there and has been completed or replaced
};

// Brings the installation on this machine to what the request says. All or nothing, and again whenever it is called.
// Throws a Failure after undoing what it had done.
InstallResult install(const Places& places, const InstallRequest& request);

// What removing did, in words; empty when nothing is installed. Folders that hold what is not ours stay, and are named
// in kept.
struct RemovalResult {
  std::vector<std::string> done;
  std::vector<std::string> kept;
};

// Takes the installation off this machine: what its record names, and what the module and administrators have put into
// keys of its own. Refuses while printers use the monitor's ports, and an installation without a record; with force the
// printers and ports are removed first, and files and keys that are known by name. Throws a Failure; calling it again
// goes on where it stopped.
RemovalResult uninstall(const Places& places, bool force);

}  // namespace admin
