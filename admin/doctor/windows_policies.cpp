#include "admin/doctor/windows_policies.h"

#include "admin/base/registry_value.h"
#include "admin/spooler/printer_driver.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>

#include <algorithm>
#include <fmt/format.h>
#include <lm.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using Judge = std::string (*)(DWORD value, const PolicyContext& context);

std::string harmless(DWORD, const PolicyContext&) {
  return {};
}

std::string protectedPrint(DWORD value, const PolicyContext&) {
  if (value != 1) return {};
  return "Windows protected print mode is on: the spooler prints through IPP and nothing else, and takes neither this "
         "monitor nor the drivers of its printers";
}

std::string deviceControl(DWORD value, const PolicyContext&) {
  if (value != 1) return {};
  return "printing is restricted to printers of the corporate network and approved USB printers, and a printer on a "
         "port of this monitor is neither";
}

std::string validation(DWORD value, const PolicyContext& context) {
  if (value > 3 || context.hasUsableDriver) return {};
  static constexpr const char* kWho[] = {"came with Windows", "came with Windows or are in the store PrintDrivers",
                                         "came with Windows, are in the store PrintDrivers or are signed by WHQL",
                                         "came with Windows, are in the store PrintDrivers, are signed by WHQL or have "
                                         "a trusted publisher"};
  return fmt::format(
      "no printer driver is installed that printers of sessions can get, and Windows lets only those be "
      "installed that {}",
      kWho[value]);
}

std::string rpcPort(DWORD value, const PolicyContext& context) {
  if (value == 0 || value != context.serverPort) return {};
  return fmt::format("the spooler takes connections of other machines at TCP port {}, which is the port of aps", value);
}

struct Row {
  const wchar_t* subkey;  // below the policies; nullptr: the spooler's own key
  const wchar_t* name;
  const char* policy;
  const char* meaning;
  Judge judge;
};

constexpr char kOtherMachines[] = "about connections between machines; sessions print on this one";
constexpr wchar_t kModeName[] = L"WindowsProtectedPrintMode";

constexpr Row kRows[] = {
    {L"\\WPP", L"WindowsProtectedPrintGroupPolicyState", "Configure Windows protected print", "the mode is off",
     protectedPrint},
    {L"\\WPP", kModeName, "", "the mode is off", protectedPrint},
    {L"", L"EnableDeviceControl", "Enable Device Control Printing Restrictions", "no printer is restricted",
     deviceControl},
    {L"\\Driver", L"ValidationLevel", "Manage Print Driver signature validation",
     "about drivers that are installed from now on; there is one for printers of sessions", validation},
    {L"\\RPC", L"RpcTcpPort", "Configure RPC over TCP port", kOtherMachines, rpcPort},
    {L"\\RPC", L"RpcUseNamedPipeProtocol", "Configure RPC connection settings", kOtherMachines, harmless},
    {L"\\RPC", L"RpcAuthentication", "Configure RPC connection settings", kOtherMachines, harmless},
    {L"\\RPC", L"RpcProtocols", "Configure RPC listener settings", kOtherMachines, harmless},
    {L"\\RPC", L"ForceKerberosForRpc", "Configure RPC listener settings", kOtherMachines, harmless},
    {nullptr, L"RpcAuthnLevelPrivacyEnabled", "Configure RPC packet level privacy setting for incoming connections",
     kOtherMachines, harmless},
    {L"", L"RegisterSpoolerRemoteRpcEndPoint", "Allow Print Spooler to accept client connections", kOtherMachines,
     harmless},
    {L"", L"RedirectionguardPolicy", "Configure Redirection Guard",
     "about links that users make in folders of the spooler", harmless},
    {L"", L"CopyFilesPolicy", "Manage processing of Queue-specific files", "about printers that other servers share",
     harmless},
    {L"", L"PrintDriverIsolationExecutionPolicy", "Execute print drivers in isolated processes",
     "about where drivers run; a monitor runs in the spooler in any case", harmless},
    {L"", L"PrintDriverIsolationOverrideCompat",
     "Override print driver execution compatibility setting reported by print driver",
     "about where drivers run; a monitor runs in the spooler in any case", harmless},
    {L"\\PackagePointAndPrint", L"PackagePointAndPrintOnly", "Only use Package Point and print",
     "about printers that other servers share", harmless},
    {L"\\PointAndPrint", L"RestrictDriverInstallationToAdministrators",
     "Limits print driver installation to Administrators", "about users; mgprintmon installs drivers as administrator",
     harmless},
};

// Where it is set, and who can change that.
std::string remedyOf(const WindowsSetting& setting, const PolicyContext& context) {
  const std::string place = fmt::format("the value {} of HKEY_LOCAL_MACHINE\\{}", corvane::toUtf8(setting.name),
                                        corvane::toUtf8(setting.key));
  if (setting.policy.empty()) {
    return fmt::format(
        "An administrator of this machine turns it off: Settings, Bluetooth & devices, Printers & "
        "scanners, Windows protected print mode ({}).",
        place);
  }
  const std::string policy =
      fmt::format("The policy \"{}\" says so (Computer Configuration, Administrative Templates, Printers; {}).",
                  setting.policy, place);
  if (context.domain.empty()) {
    return policy + " This machine is in no domain: an administrator changes it here, with gpedit.msc.";
  }
  return fmt::format(
      "{} This machine is in the domain {}: who administers its group policy changes it; gpresult /h FILE "
      "names the policy object. Where that is the local one, an administrator does it here, with "
      "gpedit.msc.",
      policy, programs::oneLine(corvane::fromUtf8(context.domain)));
}

}  // namespace

std::vector<WindowsSetting> windowsSettings(const PolicyContext& context, const WindowsPolicyKeys& keys) {
  std::vector<WindowsSetting> settings;
  for (const Row& row : kRows) {
    const std::wstring key = row.subkey == nullptr ? keys.print : keys.policies + row.subkey;
    const auto present = readValue(key, row.name);
    if (!present) continue;
    WindowsSetting setting{key, row.name, row.policy, "not a DWORD", "without effect", "", ""};
    if (const auto number = present->number()) {
      setting.value = std::to_string(*number);
      // The switch of the settings follows the policy, which is the one to be changed.
      const bool isSaid = row.name == kModeName && !settings.empty() && !settings.front().cause.empty();
      setting.meaning = isSaid ? "follows the policy" : row.meaning;
      if (!isSaid) setting.cause = row.judge(*number, context);
    }
    if (!setting.cause.empty()) {
      setting.meaning.clear();
      setting.remedy = remedyOf(setting, context);
    }
    settings.push_back(std::move(setting));
  }
  return settings;
}

namespace {

// The domain that this machine has joined; empty when there is none.
std::string domainOfThisMachine() {
  wchar_t* name = nullptr;
  NETSETUP_JOIN_STATUS status = NetSetupUnknownStatus;
  if (NetGetJoinInformation(nullptr, &name, &status) != NERR_Success) return {};
  const std::string domain = status == NetSetupDomainName && name != nullptr ? corvane::toUtf8(name) : std::string();
  if (name != nullptr) NetApiBufferFree(name);
  return domain;
}

bool hasUsableDriver() try {
  const std::vector<PrinterDriver> installed = installedDrivers();
  return std::any_of(installed.begin(), installed.end(),
                     [](const PrinterDriver& driver) { return driver.signOfXps().empty(); });
} catch (const Failure&) {
  return true;
}

}  // namespace

PolicyContext policyContext(const Places& places) {
  const auto port = readValue(places.frameworkKey(), L"Port");
  return {port ? port->number().value_or(kDefaultServerPort) : kDefaultServerPort, hasUsableDriver(),
          domainOfThisMachine()};
}

Json settingsJson(const std::vector<WindowsSetting>& settings) {
  Json all = Json::array();
  for (const WindowsSetting& setting : settings) {
    all.push_back({{"key", textValue(setting.key)},
                   {"name", textValue(setting.name)},
                   {"policy", setting.policy},
                   {"value", setting.value},
                   {"meaning", setting.meaning},
                   {"cause", setting.cause},
                   {"remedy", setting.remedy}});
  }
  return all;
}

}  // namespace admin
