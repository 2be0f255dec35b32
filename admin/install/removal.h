#pragma once

#include "admin/base/places.h"

#include <string>
#include <vector>

namespace admin {

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
