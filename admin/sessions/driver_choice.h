#pragma once

#include "admin/spooler/driver_settings.h"
#include "admin/spooler/printer_driver.h"

#include <string>
#include <vector>

namespace admin {

// The drivers of this server and what is set about them.
struct ServerDrivers {
  std::vector<PrinterDriver> installed;
  DriverSettings settings;

  // As they are on this machine. Throws a SystemFailure.
  static ServerDrivers ofThisMachine();
};

// The driver that a session's printer gets.
struct DriverChoice {
  std::wstring driver;  // as the spooler names it; empty when there is none
  std::string why;      // then: what is the matter with each that was looked at, to follow the printer's name
};

// Chooses the driver for a printer whose client names that driver, which may be none: the same driver, or the one of
// the table's line for it, or the substitute, whichever comes first that is installed and does not send XPS.
DriverChoice chooseDriver(const std::wstring& clientDriver, const std::wstring& substitute,
                          const ServerDrivers& drivers);

}  // namespace admin
