#include "admin/doctor/repairs.h"

#include "admin/base/private_folder.h"
#include "admin/base/registry_value.h"
#include "admin/base/service.h"
#include "admin/doctor/checks.h"
#include "corvane/base/text.h"
#include "tests/support/admin/installation_fixture.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace admin {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// An installation that a test breaks.
class RepairsTest : public InstallationTest {
 protected:
  RepairsTest() {
    install(places, request);
    createKey(converter());
  }

  std::wstring converter() const { return places.productKey() + L"\\Converter"; }
  // What a doctor says who repairs, and whether all is well then.
  bool isMended(const std::function<std::string()>& check, const FindRepair& findRepair, bool yes = true) {
    std::ostringstream out;
    Output output(out, out, false);
    Diagnosis diagnosis(output, false, [yes](const std::string&) { return yes; });
    diagnosis.examine("check", check, findRepair);
    said = out.str();
    return diagnosis.isWell();
  }
  bool registryIsMended(bool yes = true) {
    return isMended([this] { return checkRegistry(places); }, [this] { return repairOfRegistry(places); }, yes);
  }

  std::string said;
};

TEST_F(RepairsTest, AnInstallationThatIsWellNeedsNone) {
  const auto before = listing();
  EXPECT_TRUE(registryIsMended());
  EXPECT_EQ(said, "ok      check: every value is there, of its type, and makes sense\n");
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, ANumberOutOfItsBoundsIsRemovedWithItsOldValueSaid) {
  const auto before = listing();
  writeValue(converter(), L"MemoryLimitMegabytes", RegistryValue::ofNumber(7));
  EXPECT_TRUE(registryIsMended());
  EXPECT_EQ(
      said,
      "FAILED  check: the value \"MemoryLimitMegabytes\" of \"SOFTWARE\\MgAdminTest\\Vendor\\Marrowgate\\Converter\" "
      "is 7\n"
      "        Delete it, or set it to a number from 128 to 1048576.\n"
      "        done: remove the value MemoryLimitMegabytes (7) of "
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\MgAdminTest\\Vendor\\Marrowgate\\Converter: without it 1024 holds\n"
      "ok      check: every value is there, of its type, and makes sense\n");
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, EveryNumberOfAnotherTypeIsRemovedInOneGo) {
  createKey(places.productKey() + L"\\AppServer");
  const auto before = listing();
  for (const RegistryNumber& number : registryNumbers(places))
    if (number.name != L"Port") writeValue(number.key, number.name, RegistryValue::ofText(L"many"));
  EXPECT_TRUE(registryIsMended());
  EXPECT_THAT(said, HasSubstr("done: remove the value Trace (not a DWORD) of "));
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, WhatIsMissingIsInstalledAgain) {
  const auto before = listing();
  deleteKey(places.portsKey());
  deleteValue(places.productKey(), L"RootPath");
  deleteValue(places.eventSourceKey, L"EventMessageFile");
  EXPECT_TRUE(registryIsMended());
  EXPECT_THAT(said, HasSubstr("done: install again what is missing, from \"" + corvane::toUtf8(request.from) + "\"\n"));
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, AFolderOfTheLogIsMadeAndALogThatIsAFolderIsNamedAnew) {
  const auto before = listing();
  fs::remove_all(places.logFolder());
  EXPECT_TRUE(registryIsMended());
  EXPECT_THAT(said, HasSubstr("done: make the folder \""));
  EXPECT_EQ(difference(before, listing()), "");
  writeValue(places.frameworkKey(), L"LogFile", RegistryValue::ofText(places.root));
  EXPECT_TRUE(registryIsMended());
  EXPECT_THAT(said, HasSubstr("done: remove the value LogFile (\""));
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, DamagedFilesAreRestoredFromWhereTheyCame) {
  const auto before = listing();
  fs::remove(places.module());
  fs::remove(places.converter());
  EXPECT_TRUE(isMended([this] { return checkModuleFile(places); }, [this] { return repairByInstalling(places); }));
  EXPECT_EQ(difference(before, listing()), "");
  fs::remove(places.converter());
  EXPECT_TRUE(repairOfConverter(places));
  fs::remove_all(request.from);
  EXPECT_FALSE(repairOfConverter(places));
  EXPECT_FALSE(repairByInstalling(places));
}

TEST_F(RepairsTest, AMonitorThatTheSpoolerHasLostIsRegisteredAgain) {
  const auto before = listing();
  monitors.clear();
  EXPECT_TRUE(isMended(checkRegistration, [this] { return repairOfRegistration(places); }));
  EXPECT_THAT(said, HasSubstr("done: register the monitor with the spooler again\n"));
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, WhatTheSpoolerRefusesIsSaidWithTheCheckStillFailed) {
  monitors.clear();
  refuseMonitor(ERROR_ACCESS_DENIED);
  EXPECT_FALSE(isMended(checkRegistration, [this] { return repairOfRegistration(places); }));
  EXPECT_THAT(said, HasSubstr("could not register the monitor with the spooler again: the spooler refuses the print "
                              "monitor: "));
  EXPECT_THAT(said, HasSubstr("        Run mgprintmon as administrator, from an elevated command prompt.\n"));
}

TEST_F(RepairsTest, AnsweredWithNoNothingIsChanged) {
  monitors.clear();
  writeValue(converter(), L"MemoryLimitMegabytes", RegistryValue::ofNumber(7));
  fs::remove(places.module());
  const auto before = listing();
  EXPECT_FALSE(registryIsMended(false));
  EXPECT_THAT(said, HasSubstr("left as it is, not done: remove the value MemoryLimitMegabytes (7) of "));
  EXPECT_FALSE(isMended(
      checkRegistration, [this] { return repairOfRegistration(places); }, false));
  EXPECT_FALSE(
      isMended([this] { return checkModuleFile(places); }, [this] { return repairByInstalling(places); }, false));
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RepairsTest, AKeyIsMadeWhereNoneIsAndNeverInPlaceOfAnother) {
  EXPECT_FALSE(repairOfKeyFile(places));
  writeValue(places.frameworkKey(), kKeyFileName, RegistryValue::ofText(places.monitorKey()));
  EXPECT_TRUE(repairOfKeyFile(places));
  fs::create_directories(places.keyFolder());
  TemporaryFolder::write(places.monitorKey(), "no key");
  EXPECT_FALSE(repairOfKeyFile(places));
  writeValue(places.frameworkKey(), kKeyFileName, RegistryValue::ofText(folder.file(L"other.key")));
  EXPECT_FALSE(repairOfKeyFile(places));
}

// Windows has a service of this installation, stopped, with that way to start.
class ServiceRepairsTest : public RepairsTest {
 protected:
  ServiceRepairsTest() {
    places.serverService = L"MgAdminTestAps";
    places.watchService = L"MgAdminTestWatch";
    deleteService(places.serverService);
    makeService({places.serverService,
                 L"A test",
                 L"It is there for a test.",
                 L"C:\\windows\\no-such-program.exe --service --listen 127.0.0.1:4799",
                 L"LocalSystem",
                 {}});
    writeValue(places.recordKey(), L"Services", RegistryValue::ofTexts({places.serverService}));
    for (const std::wstring& name : serviceFolders(places))
      fs::create_directories(name);
  }
  ~ServiceRepairsTest() override { deleteService(places.serverService); }

  void setStart(DWORD start) const {
    SC_HANDLE const manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    SC_HANDLE const service = OpenServiceW(manager, places.serverService.c_str(), SERVICE_CHANGE_CONFIG);
    EXPECT_TRUE(ChangeServiceConfigW(service, SERVICE_NO_CHANGE, start, SERVICE_NO_CHANGE, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr));
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
  }
};

TEST_F(ServiceRepairsTest, OneThatIsDisabledIsEnabledBeforeItIsStarted) {
  EXPECT_EQ(repairOfServices(places)->what, "start the service MgAdminTestAps");
  setStart(SERVICE_DISABLED);
  EXPECT_FALSE(isMended([this] { return checkServices(places); }, [this] { return repairOfServices(places); }));
  EXPECT_THAT(said, HasSubstr("FAILED  check: the service MgAdminTestAps is stopped and disabled\n"
                              "        Let it start: sc config MgAdminTestAps start= auto, and net start "
                              "MgAdminTestAps.\n"
                              "        could not enable and start the service MgAdminTestAps: "));
  // Its program is none; but it is enabled.
  EXPECT_TRUE(serviceFacts(places.serverService)->startsItself);
}

TEST_F(ServiceRepairsTest, ThePortIsThatOfTheService) {
  writeValue(places.frameworkKey(), L"Port", RegistryValue::ofNumber(70000));
  EXPECT_TRUE(registryIsMended());
  EXPECT_EQ(readValue(places.frameworkKey(), L"Port")->number(), 4799u);
  deleteValue(places.recordKey(), L"Services");  // it is somebody else's
  writeValue(places.frameworkKey(), L"Port", RegistryValue::ofNumber(70000));
  EXPECT_THAT(repairOfRegistry(places)->what, HasSubstr("remove the value Port (70000) of "));
}

TEST_F(ServiceRepairsTest, OneThatIsGoneIsInstalledAgain) {
  deleteService(places.serverService);
  EXPECT_THAT(repairOfServices(places)->what, HasSubstr("install again what is missing, from "));
}

TEST(RepairQuestion, IsOneLineAndOnlyYesIsYes) {
  std::istringstream in("y\nYes\nn\n\nok\n");
  std::ostringstream out;
  const AskRepair ask = askAt(in, out);
  std::string answers;
  for (int i = 0; i < 6; ++i)
    answers += ask("start the service aps") ? 'y' : 'n';
  EXPECT_EQ(answers, "yynnnn");
  EXPECT_EQ(out.str().substr(0, 38), "        start the service aps? [y/N]  ");
}

}  // namespace
}  // namespace admin
