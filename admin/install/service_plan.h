#pragma once

#include "admin/base/places.h"
#include "admin/base/service.h"

#include <optional>
#include <string>

namespace admin {

// What the two services of an installation are made from.
struct ServicePlan {
  std::optional<unsigned> serverPort;  // empty: that of the command line that is there, or the default one
  std::wstring keyFolder;              // empty: peers need no keys
  bool asSystem = false;               // aps may start programs in sessions, which only the system may
  // Where print clients on other machines are served, and how they reach that; empty: as the command line that is there
  // says, or nowhere.
  std::wstring clientAddress = {};
  std::wstring publicAddress = {};
  bool onlyThisMachine = false;  // nowhere, whatever it says
};

// The application server: as an account of its own that may do nothing but what everybody may. The arguments of the
// service that is there stay, but for what the plan names and for keys that have been made since.
ServiceSettings serverService(const Places& places, const ServicePlan& plan);
// What brings sessions up and down: as the system, because the spooler takes ports and printers from administrators
// only.
ServiceSettings watchService(const Places& places);

}  // namespace admin
