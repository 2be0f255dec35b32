#pragma once

#include "admin/install/installation.h"
#include "tests/support/admin/driver_spooler.h"
#include "tests/support/admin/service_manager.h"
#include "tests/support/import_seam.h"
#include "tests/support/temporary_folder.h"

#include <windows.h>
#include <winspool.h>

#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace admin {

// A machine for tests of installing: its system folder and program folder stand in a temporary folder, its keys below
// one of the test's own, its spooler is a set of names, and its service manager a map. Modules are there in several
// versions.
class InstallationTest : public testing::Test {
 protected:
  InstallationTest();
  ~InstallationTest() override;

  // The file of a built module with version 3.9.0.0, 4.0.1.0 or 5.0.0.0.
  static std::wstring moduleOfVersion(const std::string& version);
  // Puts that module into the folder to install from.
  void offer(const std::string& version);
  // Puts programs of the services into that folder, with that in them.
  void offerPrograms(const std::string& content);
  // From now on the request is for services and a key.
  void wantServices();
  // Everything that the machine holds, as lines: folders, files with their content, keys, values, monitors, printer
  // drivers, services.
  std::set<std::string> listing() const;
  // The lines that are in one listing only, for a test's message.
  static std::string difference(const std::set<std::string>& before, const std::set<std::string>& after);

  // The spooler has the module loaded.
  void holdModule();
  // Every write takes half of what it was given and calls it a success, as on a disk that is full.
  void fillDisk();
  void refuseMonitor(DWORD error);
  // The user is no administrator.
  void denyFolders();

  ImportSeams seams;
  DriverSpooler drivers;
  OwnServiceManager services;
  TemporaryFolder folder;
  Places places;
  InstallRequest request;
  std::set<std::wstring> monitors;
  std::vector<std::wstring> ports;  // of the monitor below
  std::wstring portMonitor = kMonitorName;
  std::vector<PRINTER_INFO_2W> printers;

 private:
  void replaceSpooler();
  void replacePrinters();
};

}  // namespace admin
