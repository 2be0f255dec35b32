#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace admin {

// How a service of Windows is to be: started with the machine, again after a failure of any kind, and as an account
// with no more than it needs.
struct ServiceSettings {
  std::wstring name;
  std::wstring displayName;
  std::wstring description;
  std::wstring commandLine;
  std::wstring account;                  // "LocalSystem", or "NT SERVICE\\" and its name: an account of its own
  std::vector<std::wstring> privileges;  // which are left to it
};

// What the service manager says of one.
struct ServiceFacts {
  std::wstring commandLine;
  std::wstring account;
  bool startsItself = false;  // with the machine
  bool isDisabled = false;    // nobody can start it
  DWORD state = SERVICE_STOPPED;
  DWORD process = 0;
  DWORD error = 0;  // why it has stopped; 0 when nothing went wrong
  DWORD code = 0;   // its own exit code, when that error is ERROR_SERVICE_SPECIFIC_ERROR
};

// Every function throws a SystemFailure that names the service, or a Failure that says more.

// Nothing when there is no service of that name.
std::optional<ServiceFacts> serviceFacts(const std::wstring& name);
// Makes it, with its recovery settings; or leaves none.
void makeService(const ServiceSettings& settings);
void setServiceCommand(const std::wstring& name, const std::wstring& commandLine);
// It starts with the machine from now on.
void enableService(const std::wstring& name);
// Returns when it serves; nothing happens when it does already.
void startService(const std::wstring& name);
// Returns when its process has ended; nothing happens when it does not run, or is not there.
void stopService(const std::wstring& name);
// Likewise.
void deleteService(const std::wstring& name);
// "runs", or "has stopped with the exit code 1": for people.
std::string stateText(const ServiceFacts& facts);

// The security identifier, as text, that Windows gives the service of that name.
std::wstring serviceSid(const std::wstring& name);

}  // namespace admin
