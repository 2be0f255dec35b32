#pragma once

#include <string>
#include <vector>

namespace admin {

// A printer driver for 64-bit Windows that the spooler has: the properties that tell whether a session's printer can
// have it. A plain value.
struct PrinterDriver {
  std::wstring name;
  unsigned version = 3;  // of the driver model: 3 renders by itself, 4 from XPS through filters
  unsigned attributes = 0;
  std::wstring file;                // the path of the driver itself
  std::vector<std::wstring> parts;  // the paths of its other files

  // What shows that its jobs are XPS, as in "version 4"; empty for a driver that can be used. Such a job goes through
  // filters of the driver, and nobody can tell what they make of it.
  std::string signOfXps() const;
};

// Why a printer cannot have the driver, as in "\"Driver\" sends XPS and cannot be used (version 4)"; empty when it can.
std::string obstacleOf(const PrinterDriver& driver);

// The drivers that are installed. Throws a SystemFailure.
std::vector<PrinterDriver> installedDrivers();

// The driver of that name, in which case does not count, as for the spooler; null when there is none.
const PrinterDriver* findDriver(const std::vector<PrinterDriver>& drivers, const std::wstring& name);

// The driver of that name, which is fit for printers of sessions. Throws a Failure that says what to do when it is not
// installed or not fit.
const PrinterDriver& requireDriver(const std::vector<PrinterDriver>& drivers, const std::wstring& name);

// Adds a driver from its package, the path of an .inf file. Throws a Failure, also where the system has no functions
// for that.
void addDriverFromPackage(const std::wstring& package, const std::wstring& name);

// Deletes a driver with the files that no other one uses; false when it is in use. Succeeds when it is not there.
// Throws a SystemFailure.
bool deleteDriver(const std::wstring& name);

}  // namespace admin
