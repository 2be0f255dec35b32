#include "admin/doctor/windows_policies.h"

#include "admin/base/registry_value.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr wchar_t kPoliciesTestKey[] = L"SOFTWARE\\MgAdminTest";

// A Windows whose settings stand below a key of the test's own.
class WindowsPolicies : public testing::Test {
 protected:
  WindowsPolicies() { clean(); }
  ~WindowsPolicies() override { clean(); }
  static void clean() { deleteKeyTree(kPoliciesTestKey); }

  void set(const std::wstring& key, const std::wstring& name, DWORD value) {
    createKey(key);
    writeValue(key, name, RegistryValue::ofNumber(value));
  }
  // The only setting that is there.
  WindowsSetting only() {
    const auto settings = windowsSettings(context, keys);
    EXPECT_EQ(settings.size(), 1u);
    return settings.empty() ? WindowsSetting() : settings.front();
  }

  WindowsPolicyKeys keys{std::wstring(kPoliciesTestKey) + L"\\Policies", std::wstring(kPoliciesTestKey) + L"\\Print"};
  PolicyContext context{4711, true, ""};
};

TEST_F(WindowsPolicies, OfAFreshMachineAreNone) {
  EXPECT_TRUE(windowsSettings(context, keys).empty());
}

TEST_F(WindowsPolicies, ProtectedPrintModeByPolicyIsSaidWithPolicyPlaceAndWhoCanChangeIt) {
  set(keys.policies + L"\\WPP", L"WindowsProtectedPrintGroupPolicyState", 1);
  EXPECT_EQ(
      only().cause,
      "Windows protected print mode is on: the spooler prints through IPP and nothing else, and takes neither this "
      "monitor nor the drivers of its printers");
  EXPECT_EQ(
      only().remedy,
      "The policy \"Configure Windows protected print\" says so (Computer Configuration, Administrative Templates, "
      "Printers; the value WindowsProtectedPrintGroupPolicyState of "
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\MgAdminTest\\Policies\\WPP). This machine is in no domain: an administrator "
      "changes it here, with gpedit.msc.");
  context.domain = "EXAMPLE";
  EXPECT_THAT(only().remedy, HasSubstr("). This machine is in the domain EXAMPLE: who administers its group policy "
                                       "changes it; gpresult /h FILE names the policy object. Where that is the local "
                                       "one, an administrator does it here, with gpedit.msc."));
  set(keys.policies + L"\\WPP", L"WindowsProtectedPrintGroupPolicyState", 0);
  EXPECT_EQ(only().cause, "");
}

TEST_F(WindowsPolicies, ProtectedPrintModeOfTheSettingsIsTheMachinesAdministrators) {
  context.domain = "EXAMPLE";
  set(keys.policies + L"\\WPP", L"WindowsProtectedPrintMode", 1);
  EXPECT_THAT(only().cause, HasSubstr("Windows protected print mode is on"));
  EXPECT_EQ(
      only().remedy,
      "An administrator of this machine turns it off: Settings, Bluetooth & devices, Printers & scanners, Windows "
      "protected print mode (the value WindowsProtectedPrintMode of "
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\MgAdminTest\\Policies\\WPP).");
}

TEST_F(WindowsPolicies, TheSwitchThatFollowsThePolicyIsNotSaidTwice) {
  set(keys.policies + L"\\WPP", L"WindowsProtectedPrintGroupPolicyState", 1);
  set(keys.policies + L"\\WPP", L"WindowsProtectedPrintMode", 1);
  const auto settings = windowsSettings(context, keys);
  ASSERT_EQ(settings.size(), 2u);
  EXPECT_NE(settings[0].cause, "");
  EXPECT_EQ(settings[1].cause, "");
  EXPECT_EQ(settings[1].meaning, "follows the policy");
}

TEST_F(WindowsPolicies, DeviceControlKeepsPrintersOfOtherPortsOut) {
  set(keys.policies, L"EnableDeviceControl", 1);
  EXPECT_EQ(only().cause,
            "printing is restricted to printers of the corporate network and approved USB printers, and a printer on a "
            "port of this monitor is neither");
  EXPECT_THAT(only().remedy, HasSubstr("The policy \"Enable Device Control Printing Restrictions\" says so"));
}

TEST_F(WindowsPolicies, ValidationOfDriversMattersWhereNoDriverIsInstalled) {
  set(keys.policies + L"\\Driver", L"ValidationLevel", 0);
  EXPECT_EQ(only().cause, "");
  context.hasUsableDriver = false;
  EXPECT_EQ(
      only().cause,
      "no printer driver is installed that printers of sessions can get, and Windows lets only those be installed "
      "that came with Windows");
  set(keys.policies + L"\\Driver", L"ValidationLevel", 3);
  EXPECT_THAT(only().cause, HasSubstr("have a trusted publisher"));
  set(keys.policies + L"\\Driver", L"ValidationLevel", 4);
  EXPECT_EQ(only().cause, "");
}

TEST_F(WindowsPolicies, ThePortOfTheSpoolerMayNotBeThatOfAps) {
  set(keys.policies + L"\\RPC", L"RpcTcpPort", 4711);
  EXPECT_EQ(only().cause, "the spooler takes connections of other machines at TCP port 4711, which is the port of aps");
  set(keys.policies + L"\\RPC", L"RpcTcpPort", 4712);
  EXPECT_EQ(only().cause, "");
  context.serverPort = 0;
  set(keys.policies + L"\\RPC", L"RpcTcpPort", 0);
  EXPECT_EQ(only().cause, "");
}

TEST_F(WindowsPolicies, WhatDoesNoHarmIsToldAndNotComplainedOf) {
  set(keys.policies, L"RegisterSpoolerRemoteRpcEndPoint", 2);
  set(keys.policies, L"RedirectionguardPolicy", 1);
  set(keys.policies, L"CopyFilesPolicy", 0);
  set(keys.policies, L"PrintDriverIsolationExecutionPolicy", 0);
  set(keys.policies, L"PrintDriverIsolationOverrideCompat", 1);
  set(keys.policies + L"\\RPC", L"RpcUseNamedPipeProtocol", 1);
  set(keys.policies + L"\\RPC", L"RpcAuthentication", 1);
  set(keys.policies + L"\\RPC", L"RpcProtocols", 3);
  set(keys.policies + L"\\RPC", L"ForceKerberosForRpc", 1);
  set(keys.print, L"RpcAuthnLevelPrivacyEnabled", 0);
  set(keys.policies + L"\\PackagePointAndPrint", L"PackagePointAndPrintOnly", 1);
  set(keys.policies + L"\\PointAndPrint", L"RestrictDriverInstallationToAdministrators", 1);
  const auto settings = windowsSettings(context, keys);
  EXPECT_EQ(settings.size(), 12u);
  for (const WindowsSetting& setting : settings) {
    EXPECT_EQ(setting.cause + setting.remedy, "") << setting.policy;
    EXPECT_NE(setting.meaning, "") << setting.policy;
  }
}

TEST_F(WindowsPolicies, AValueOfAnotherTypeHasNoEffect) {
  createKey(keys.policies);
  writeValue(keys.policies, L"EnableDeviceControl", RegistryValue::ofText(L"1"));
  EXPECT_EQ(only().cause, "");
  EXPECT_EQ(settingsJson({only()}), Json::array({{{"key", "SOFTWARE\\MgAdminTest\\Policies"},
                                                  {"name", "EnableDeviceControl"},
                                                  {"policy", "Enable Device Control Printing Restrictions"},
                                                  {"value", "not a DWORD"},
                                                  {"meaning", "without effect"},
                                                  {"cause", ""},
                                                  {"remedy", ""}}}));
}

}  // namespace
}  // namespace admin
