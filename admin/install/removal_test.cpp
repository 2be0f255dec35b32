#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/registry_value.h"
#include "admin/install/installation.h"
#include "tests/support/admin/installation_fixture.h"

#include <gmock/gmock.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using RemovalTest = InstallationTest;

TEST_F(RemovalTest, LeavesTheMachineAsItWasBeforeTheInstallation) {
  const auto before = listing();
  install(places, request);
  writeValue(places.frameworkKey(), L"Trace", RegistryValue::ofNumber(1));
  createKey(places.productKey() + L"\\Converter");
  writeValue(places.productKey() + L"\\Converter", L"TimeLimitSeconds", RegistryValue::ofNumber(60));
  TemporaryFolder::write(places.logFile(), "a record");
  TemporaryFolder::write(places.logFile() + L".1", "an older record");
  const RemovalResult result = uninstall(places, false);
  EXPECT_THAT(result.done, Not(IsEmpty()));
  EXPECT_THAT(result.kept, IsEmpty());
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RemovalTest, TakesTheDriversSettingsAndTheDriverOfThePackageAlong) {
  drivers.takePackages();
  TemporaryFolder::write(folder.file(L"setup\\driver.inf"), "[Version]");
  const auto before = listing();
  request.driver = L"New";
  request.driverPackage = folder.file(L"setup\\driver.inf");
  install(places, request);
  createKey(places.driverTableKey());
  writeValue(places.driverTableKey(), L"HP*", RegistryValue::ofText(L"New"));
  EXPECT_THAT(uninstall(places, false).done, testing::Contains("removed the printer driver \"New\""));
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RemovalTest, ADriverThatWasThereBeforeStaysAndSoDoesOneThatOthersUse) {
  drivers.installed = {{L"Old", 3, 0, L"", {}}};
  request.driver = L"Old";
  install(places, request);
  uninstall(places, false);
  EXPECT_EQ(drivers.installed.size(), 1u);
  drivers.takePackages();
  TemporaryFolder::write(folder.file(L"setup\\driver.inf"), "[Version]");
  request.driver = L"New";
  request.driverPackage = folder.file(L"setup\\driver.inf");
  install(places, request);
  drivers.inUse = {L"New"};
  EXPECT_THAT(uninstall(places, false).kept, ElementsAre("the printer driver \"New\" stays: other printers use it"));
  EXPECT_EQ(drivers.installed.size(), 2u);
}

TEST_F(RemovalTest, OfNothingDoesNothing) {
  const auto before = listing();
  EXPECT_THAT(uninstall(places, false).done, IsEmpty());
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RemovalTest, WhatWasThereBeforeTheInstallationStays) {
  createKey(places.frameworkKey());
  writeValue(places.frameworkKey(), L"Port", RegistryValue::ofNumber(5000));
  createKey(places.vendorKey + L"\\Other");
  std::filesystem::create_directories(places.programs());
  TemporaryFolder::write(places.root + L"\\notes.txt", "mine");
  const auto before = listing();
  install(places, request);
  const RemovalResult result = uninstall(places, false);
  EXPECT_EQ(difference(before, listing()), "");
}

TEST_F(RemovalTest, WhatOthersPutBesideItStaysAndIsNamed) {
  install(places, request);
  createKey(places.vendorKey + L"\\Other");
  TemporaryFolder::write(places.root + L"\\notes.txt", "mine");
  const RemovalResult result = uninstall(places, false);
  EXPECT_THAT(result.kept, ElementsAre(HasSubstr("Marrowgate\" stays: it holds files that are not ours"),
                                       HasSubstr("Vendor\" stays: it holds what is not ours")));
  EXPECT_TRUE(fileExists(places.root + L"\\notes.txt"));
  EXPECT_TRUE(keyExists(places.vendorKey + L"\\Other"));
  EXPECT_FALSE(keyExists(places.productKey()));
}

TEST_F(RemovalTest, AnInstallationWithoutARecordIsTakenAwayWithForceOnly) {
  const auto before = listing();
  install(places, request);
  deleteKeyTree(places.recordKey());
  EXPECT_THROW(
      try { uninstall(places, false); } catch (const Failure& failure) {
        EXPECT_THAT(failure.remedy(), HasSubstr("--force"));
        throw;
      },
      Failure);
  uninstall(places, true);
  EXPECT_FALSE(fileExists(places.module()));
  EXPECT_FALSE(keyExists(places.vendorKey));
  EXPECT_THAT(monitors, IsEmpty());
}

TEST_F(RemovalTest, ThatIsCutOffGoesOnWhereItStopped) {
  const auto before = listing();
  for (int nth = 1;; ++nth) {
    install(places, request);
    writeValue(places.productKey(), L"Note", RegistryValue::ofText(L"set by an administrator"));
    seams.failNth(nth);
    try {
      uninstall(places, false);
    } catch (const Failure&) {
    }
    const bool failed = seams.hasFailed();
    seams.failNth(0);
    uninstall(places, false);
    ASSERT_EQ(difference(before, listing()), "") << "after call " << nth;
    if (!failed) break;
  }
}

}  // namespace
}  // namespace admin
