#pragma once

#include "admin/spooler/printer_driver.h"

#include <windows.h>

#include <set>
#include <string>
#include <vector>

namespace admin {

// The printer drivers of a spooler of the test's own, in place of the system's. The test's ImportSeams bring the
// system's back; they live longer than this.
class DriverSpooler {
 public:
  DriverSpooler();
  DriverSpooler(const DriverSpooler&) = delete;
  DriverSpooler& operator=(const DriverSpooler&) = delete;

  // The system has the functions for packages of drivers, as Windows does and Wine does not. A package adds the driver
  // of the name that is asked for, of the given version.
  void takePackages(unsigned version = 3);

  std::vector<PrinterDriver> installed;
  std::set<std::wstring> inUse;  // drivers of these names cannot be deleted
  unsigned packageVersion = 3;
  HRESULT uploadResult = S_OK;
  HRESULT installResult = S_OK;
  std::vector<std::wstring> calls;  // of the functions for packages, with what they were given

 private:
  bool writeList(BYTE* buffer, DWORD size, DWORD* needed, DWORD* count);

  std::vector<std::wstring> m_parts;  // of the list that was asked for last
};

// Nobody finds what only Wine has, until the test's ImportSeams bring it back.
void hideWine();

}  // namespace admin
