#include "admin/sessions/driver_choice.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

PrinterDriver driver(const wchar_t* name, unsigned version = 3) {
  return {name, version, 0, L"", {}};
}

// The driver, or in angle brackets why there is none.
std::string chosen(const std::wstring& clientDriver, const std::wstring& substitute, const ServerDrivers& drivers) {
  const DriverChoice choice = chooseDriver(clientDriver, substitute, drivers);
  return choice.driver.empty() ? "<" + choice.why + ">" : std::string(choice.driver.begin(), choice.driver.end());
}

TEST(DriverChoice, IsTheClientsOwnThenThatOfTheTableThenTheSubstitute) {
  ServerDrivers drivers;
  drivers.installed = {driver(L"Own"), driver(L"Mapped"), driver(L"Substitute")};
  drivers.settings.table = {{L"O*", L"Mapped"}};
  EXPECT_EQ(chosen(L"own", L"Substitute", drivers), "Own");
  EXPECT_EQ(chosen(L"Other", L"Substitute", drivers), "Mapped");
  EXPECT_EQ(chosen(L"Brother", L"Substitute", drivers), "Substitute");
  EXPECT_EQ(chosen(L"", L"Substitute", drivers), "Substitute");
  drivers.settings.table = {{L"*", L"Mapped"}};
  EXPECT_EQ(chosen(L"", L"Substitute", drivers), "Mapped");
}

TEST(DriverChoice, PassesOverWhatSendsXpsOrIsNotInstalled) {
  ServerDrivers drivers;
  drivers.installed = {driver(L"Own", 4), driver(L"Mapped", 4), driver(L"Substitute")};
  EXPECT_EQ(chosen(L"Own", L"Substitute", drivers), "Substitute");
  drivers.settings.table = {{L"Own", L"Mapped"}};
  EXPECT_EQ(chosen(L"Own", L"Substitute", drivers), "Substitute");
  drivers.settings.table = {{L"Own", L"Missing"}};
  EXPECT_EQ(chosen(L"Own", L"Substitute", drivers), "Substitute");
}

TEST(DriverChoice, ThatFindsNoneSaysWhatIsTheMatterWithEach) {
  ServerDrivers drivers;
  drivers.installed = {driver(L"Four", 4), driver(L"Class", 4)};
  EXPECT_EQ(chosen(L"Own", L"", drivers), "<needs the driver \"Own\", which is not installed>");
  EXPECT_EQ(chosen(L"", L"", drivers), "<names no driver>");
  EXPECT_EQ(chosen(L"", L"Sub", drivers), "<names no driver; \"Sub\" in its place is not installed>");
  EXPECT_EQ(chosen(L"Four", L"", drivers), "<cannot have the driver \"Four\", which sends XPS (version 4)>");
  EXPECT_EQ(chosen(L"Own", L"Class", drivers),
            "<needs the driver \"Own\", which is not installed; in its place \"Class\" sends XPS and cannot be used "
            "(version 4)>");
  drivers.settings.table = {{L"Own", L"Mapped"}};
  EXPECT_EQ(chosen(L"Own", L"Sub", drivers),
            "<needs the driver \"Own\", which is not installed, nor is \"Mapped\" in its place, nor is \"Sub\" in its "
            "place>");
  EXPECT_EQ(chosen(L"Own", L"Mapped", drivers),
            "<needs the driver \"Own\", which is not installed, nor is \"Mapped\" in its place>");
  drivers.settings.table = {{L"Own", L"Four"}};
  EXPECT_EQ(chosen(L"Own", L"Sub", drivers),
            "<needs the driver \"Own\", which is not installed; in its place \"Four\" sends XPS and cannot be used "
            "(version 4); \"Sub\" in its place is not installed>");
}

}  // namespace
}  // namespace admin
