#include "admin/base/failure.h"
#include "admin/doctor/checks.h"
#include "corvane/base/text.h"
#include "tests/support/admin/installation_fixture.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace admin {
namespace {

using ConverterCheckTest = InstallationTest;

// A program of the system that refuses whatever it is given, and says so.
TEST_F(ConverterCheckTest, SaysWhatAConverterThatFailsHasSaid) {
  wchar_t system[MAX_PATH];
  GetSystemDirectoryW(system, MAX_PATH);
  std::filesystem::create_directories(places.programs());
  std::filesystem::copy_file(std::filesystem::path(system) / "reg.exe", places.converter());
  try {
    checkConverter(places);
    ADD_FAILURE() << "it is well";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), testing::StartsWith("a page was not converted (exit code 1): "));
    EXPECT_THAT(failure.what(), testing::HasSubstr("nvalid"));
  }
}

}  // namespace
}  // namespace admin
