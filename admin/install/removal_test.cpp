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
