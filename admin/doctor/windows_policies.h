#pragma once

#include "admin/base/output.h"
#include "admin/base/places.h"

#include <string>
#include <vector>

namespace admin {

// What of Windows itself keeps a monitor or a driver of others out, or makes it silent: settings that administrators or
// group policies make in the registry. They are read and never written. Names and effects are those that Microsoft has
// published:
//
// - Printing.admx, as the pages "Policy CSP - Printers", "Policy CSP - ADMX_Printing" and "Policy CSP - ADMX_Printing2"
//   list it: "Configure Windows protected print", "Enable Device Control Printing Restrictions", "Manage Print Driver
//   signature validation", "Configure RPC over TCP port", "Configure RPC connection settings", "Configure RPC listener
//   settings", "Configure RPC packet level privacy setting for incoming connections", "Allow Print Spooler to accept
//   client connections", "Configure Redirection Guard", "Manage processing of Queue-specific files", "Execute print
//   drivers in isolated processes", "Only use Package Point and print", "Limits print driver installation to
//   Administrators";
// - "Windows protected print mode" for what the mode does, and its switch in the settings of Windows, which is the
// value
//   WindowsProtectedPrintMode;
// - "RPC connection updates for print in Windows 11", KB5005652 (RestrictDriverInstallationToAdministrators) and
//   KB4599464 (RpcAuthnLevelPrivacyEnabled).
//
// Most of them are about connections between machines or about users who install drivers. Sessions print on this very
// machine and mgprintmon is an administrator's, so these are told and not complained of.

// The keys below HKEY_LOCAL_MACHINE.
struct WindowsPolicyKeys {
  std::wstring policies = L"SOFTWARE\\Policies\\Microsoft\\Windows NT\\Printers";
  std::wstring print = L"SYSTEM\\CurrentControlSet\\Control\\Print";
};

// What decides whether a setting matters here.
struct PolicyContext {
  unsigned serverPort = 0;      // of aps
  bool hasUsableDriver = true;  // a driver is installed that a session's printer can get
  std::string domain;           // the one of this machine; empty: none
};

// A setting that is there.
struct WindowsSetting {
  std::wstring key, name;
  std::string policy;   // its published name; empty for a switch that is no policy
  std::string value;    // the number, or that it is none
  std::string meaning;  // what it is about, of one that does no harm
  std::string cause;    // what it does to us; empty: no harm
  std::string remedy;   // where it is set and who can change it; for a cause only
};

// Those that are set, in a fixed order; none on a fresh machine. Throws a SystemFailure for a key that cannot be read.
std::vector<WindowsSetting> windowsSettings(const PolicyContext& context, const WindowsPolicyKeys& keys = {});

// That of this machine. Where the spooler does not tell its drivers, there is one: another check says what is wrong.
PolicyContext policyContext(const Places& places);

// For a file: an array.
Json settingsJson(const std::vector<WindowsSetting>& settings);

}  // namespace admin
