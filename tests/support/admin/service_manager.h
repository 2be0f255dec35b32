#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <set>
#include <string>

namespace admin {

// A service manager of the test's own, in place of the system's: its services are entries, start at once where
// their program is there, and end at once. The test's ImportSeams bring the system's back; they live longer than this.
class OwnServiceManager {
 public:
  struct Service {
    std::wstring commandLine, account;
    DWORD startType = SERVICE_AUTO_START;
    DWORD state = SERVICE_STOPPED;
  };

  OwnServiceManager();
  OwnServiceManager(const OwnServiceManager&) = delete;
  OwnServiceManager& operator=(const OwnServiceManager&) = delete;

  // Each with what it is, as lines.
  std::set<std::string> listing() const;

  std::map<std::wstring, Service> services;

 private:
  void replaceOpening();
  void replaceQueries();
  void replaceChanges();
  // Null, with the last error, when the handle is of none that is there.
  Service* find(SC_HANDLE handle);
  SC_HANDLE handleOf(const std::wstring& name);

  std::map<SC_HANDLE, std::wstring> m_handles;
};

// Of the system's service manager, until the test's ImportSeams go:

// Every setting of a service goes to the function instead, which answers as Windows would.
void takeServiceSettings(std::function<WINBOOL(DWORD level, void* setting)> take);
// The setting of that number from now on is refused.
void refuseServiceSetting(int nth);
// The user must not use it; the next time only.
void refuseServiceManager();
// The user must not make services; the next time only.
void refuseNewService();

}  // namespace admin
