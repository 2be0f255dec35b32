#include "admin/spooler/printer_driver.h"

#include "admin/base/failure.h"
#include "tests/support/admin/driver_spooler.h"
#include "tests/support/import_seam.h"
#include "tests/support/temporary_folder.h"

#include <gmock/gmock.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

PrinterDriver classic() {
  return {L"Generic PostScript", 3, 1, L"C:\\drivers\\3\\pscript5.dll", {L"C:\\drivers\\3\\generic.ppd"}};
}

// What the call throws, for a look at its parts.
template <class Call>
Failure failureOf(Call&& call) {
  try {
    call();
  } catch (const Failure& failure) {
    return failure;
  }
  return Failure(ExitCode::kDone, "nothing was thrown", "");
}

TEST(PrinterDriver, OfVersion3ThatRendersByItselfCanBeUsed) {
  EXPECT_EQ(classic().signOfXps(), "");
  EXPECT_EQ(obstacleOf(classic()), "");
}

TEST(PrinterDriver, ThatSpoolsXpsCannotBeUsedAndTheSignIsNamed) {
  PrinterDriver driver = classic();
  driver.version = 4;
  EXPECT_EQ(obstacleOf(driver), "\"Generic PostScript\" sends XPS and cannot be used (version 4)");
  driver = classic();
  driver.attributes |= 2;
  EXPECT_EQ(driver.signOfXps(), "marked as an XPS driver");
  for (const unsigned attribute : {8u, 16u}) {
    driver = classic();
    driver.attributes |= attribute;
    EXPECT_EQ(driver.signOfXps(), "a class driver");
  }
  driver = classic();
  driver.file = L"C:\\drivers\\3\\MXDWDRV.DLL";
  EXPECT_EQ(driver.signOfXps(), "mxdwdrv.dll");
  driver = classic();
  driver.parts.push_back(L"C:\\drivers\\3\\fa-PipelineConfig.xml");
  EXPECT_EQ(driver.signOfXps(), "fa-PipelineConfig.xml");
}

TEST(PrinterDriver, OtherAttributesAndFilesAreNoSign) {
  PrinterDriver driver = classic();
  driver.attributes = 1 | 4 | 32 | 2048;
  driver.parts = {L"C:\\drivers\\3\\config.xml", L"C:\\drivers\\3\\mxdwdrv.dll.txt", L"-pipelineconfig.xml"};
  EXPECT_EQ(driver.signOfXps(), "");
}

class PrinterDriverList : public testing::Test {
 protected:
  ImportSeams seams;
  DriverSpooler spooler;
  TemporaryFolder folder;
};

TEST_F(PrinterDriverList, IsThatOfTheSpoolerWithWhatTellsXps) {
  EXPECT_THAT(installedDrivers(), IsEmpty());
  spooler.installed = {classic(), {L"Four", 4, 8, L"mxdwdrv.dll", {L"a.xml", L"b.dll"}}};
  const std::vector<PrinterDriver> found = installedDrivers();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].name, L"Generic PostScript");
  EXPECT_EQ(found[0].version, 3u);
  EXPECT_EQ(found[0].file, L"C:\\drivers\\3\\pscript5.dll");
  EXPECT_EQ(found[1].version, 4u);
  EXPECT_EQ(found[1].attributes, 8u);
  EXPECT_THAT(found[1].parts, ElementsAre(L"a.xml", L"b.dll"));
}

TEST_F(PrinterDriverList, NamesAreFoundWhateverTheirCase) {
  const std::vector<PrinterDriver> drivers = {classic()};
  ASSERT_NE(findDriver(drivers, L"GENERIC postscript"), nullptr);
  EXPECT_EQ(findDriver(drivers, L"GENERIC postscript")->name, L"Generic PostScript");
  EXPECT_EQ(findDriver(drivers, L"Generic"), nullptr);
}

TEST_F(PrinterDriverList, ADriverThatIsMissingOrSendsXpsIsRefusedWithWhatToDo) {
  PrinterDriver four = classic();
  four.name = L"Four";
  four.version = 4;
  const std::vector<PrinterDriver> drivers = {classic(), four};
  EXPECT_EQ(requireDriver(drivers, L"generic postscript").name, L"Generic PostScript");
  const Failure missing = failureOf([&] { requireDriver(drivers, L"None"); });
  EXPECT_EQ(missing.code(), ExitCode::kNotFound);
  EXPECT_STREQ(missing.what(), "the printer driver \"None\" is not installed");
  EXPECT_EQ(missing.remedy(),
            "Install it (in PowerShell: Add-PrinterDriver -Name NAME), or name its package with mgprintmon install "
            "--driver NAME --driver-package INF; \"mgprintmon drivers\" shows those that are there.");
  const Failure unfit = failureOf([&] { requireDriver(drivers, L"Four"); });
  EXPECT_EQ(unfit.code(), ExitCode::kFailed);
  EXPECT_STREQ(unfit.what(), "the printer driver \"Four\" sends XPS and cannot be used (version 4)");
  EXPECT_EQ(unfit.remedy(),
            "Name a driver of version 3 that sends PostScript; \"mgprintmon drivers\" shows which can be used.");
}

TEST_F(PrinterDriverList, APackageGoesIntoTheDriverStoreAndTheDriverComesFromThere) {
  spooler.takePackages();
  TemporaryFolder::write(folder.file(L"driver.inf"), "[Version]");
  addDriverFromPackage(folder.file(L"driver.inf"), L"New");
  EXPECT_THAT(spooler.calls, ElementsAre(L"upload (none) " + folder.file(L"driver.inf") + L" Windows x64 1 1024",
                                         L"install (none) C:\\store\\driver.inf New Windows x64 0"));
  EXPECT_NE(findDriver(installedDrivers(), L"New"), nullptr);
}

TEST_F(PrinterDriverList, APackageThatIsRefusedIsSaidSoWithTheCause) {
  spooler.takePackages();
  EXPECT_STREQ(failureOf([&] { addDriverFromPackage(L"Z:\\none.inf", L"New"); }).what(),
               "the driver package \"Z:\\none.inf\" does not exist");
  TemporaryFolder::write(folder.file(L"driver.inf"), "[Version]");
  const std::wstring package = folder.file(L"driver.inf");
  spooler.uploadResult = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
  const Failure denied = failureOf([&] { addDriverFromPackage(package, L"New"); });
  EXPECT_EQ(denied.code(), ExitCode::kAccessDenied);
  EXPECT_THAT(denied.what(), testing::EndsWith("driver.inf\" is not taken: " + errorWords(ERROR_ACCESS_DENIED)));
  spooler.uploadResult = S_OK;
  spooler.installResult = static_cast<HRESULT>(0x80070705);
  const Failure failed = failureOf([&] { addDriverFromPackage(package, L"New"); });
  EXPECT_EQ(failed.code(), ExitCode::kNotFound);
  EXPECT_THAT(failed.what(), testing::HasSubstr("the printer driver \"New\" is not added from \""));
  EXPECT_THAT(installedDrivers(), IsEmpty());
}

TEST_F(PrinterDriverList, WhereTheSystemHasNoFunctionsForPackagesItIsSaidWhatToDoInstead) {
  TemporaryFolder::write(folder.file(L"driver.inf"), "[Version]");
  const Failure failure = failureOf([&] { addDriverFromPackage(folder.file(L"driver.inf"), L"New"); });
  EXPECT_EQ(failure.code(), ExitCode::kFailed);
  EXPECT_STREQ(failure.what(), "the spooler of this system adds no driver from a package");
  EXPECT_EQ(failure.remedy(),
            "Add the driver with pnputil /add-driver INF /install and rundll32 printui.dll,PrintUIEntry /ia /m NAME /f "
            "INF, and run this again with --driver alone.");
}

TEST_F(PrinterDriverList, ADriverIsDeletedUnlessItIsInUse) {
  spooler.installed = {classic()};
  spooler.inUse = {L"Generic PostScript"};
  EXPECT_FALSE(deleteDriver(L"Generic PostScript"));
  spooler.inUse.clear();
  EXPECT_TRUE(deleteDriver(L"Generic PostScript"));
  EXPECT_THAT(installedDrivers(), IsEmpty());
  EXPECT_TRUE(deleteDriver(L"Generic PostScript"));
}

}  // namespace
}  // namespace admin
