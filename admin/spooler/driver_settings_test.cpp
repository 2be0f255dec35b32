#include "admin/spooler/driver_settings.h"

#include "admin/base/registry_value.h"

#include <windows.h>

#include <gmock/gmock.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The driver of the line that is chosen, or "(none)".
std::wstring chosen(const std::vector<DriverMapping>& table, const std::wstring& clientDriver) {
  DriverSettings settings;
  settings.table = table;
  const DriverMapping* const line = settings.lineFor(clientDriver);
  return line != nullptr ? line->driver : L"(none)";
}

TEST(DriverTable, CaseAndWildcardsAreAsInNamesOfFiles) {
  EXPECT_EQ(chosen({{L"hp*", L"A"}}, L"HP LaserJet"), L"A");
  EXPECT_EQ(chosen({{L"HP?", L"A"}}, L"hpX"), L"A");
  EXPECT_EQ(chosen({{L"HP?", L"A"}}, L"HP"), L"(none)");
  EXPECT_EQ(chosen({{L"\u00d6l*", L"A"}}, L"\u00f6LDRUCK"), L"A");
  EXPECT_EQ(chosen({{L"*", L"A"}}, L""), L"A");
  EXPECT_EQ(chosen({}, L"HP"), L"(none)");
}

TEST(DriverTable, TheNameItselfComesBeforeEveryPattern) {
  EXPECT_EQ(chosen({{L"HP*", L"A"}, {L"hp", L"B"}}, L"HP"), L"B");
  EXPECT_EQ(chosen({{L"hp", L"B"}, {L"HP*", L"A"}}, L"HP"), L"B");
}

TEST(DriverTable, ThenThePatternWithMoreCharactersThatAreNoWildcards) {
  EXPECT_EQ(chosen({{L"*", L"A"}, {L"HP*", L"B"}, {L"HP LaserJet*", L"C"}}, L"HP LaserJet 4"), L"C");
  EXPECT_EQ(chosen({{L"HP*", L"B"}, {L"???????*", L"A"}}, L"HP LaserJet 4"), L"B");
}

TEST(DriverTable, ThenTheLongerOneAndThenTheFirstByName) {
  EXPECT_EQ(chosen({{L"HP*", L"A"}, {L"HP?*", L"B"}}, L"HP LaserJet"), L"B");
  EXPECT_EQ(chosen({{L"*Jet", L"A"}, {L"HP *", L"B"}}, L"HP Jet"), L"A");
  EXPECT_EQ(chosen({{L"HP *", L"B"}, {L"*Jet", L"A"}}, L"HP Jet"), L"A");
}

TEST(DriverSettings, StandInTheRegistryBesideThePorts) {
  constexpr wchar_t kSettingsKey[] = L"SOFTWARE\\MgDriverSettingsTest";
  Places places;
  places.vendorKey = kSettingsKey;
  const DriverSettings none = DriverSettings::read(places);
  EXPECT_EQ(none.fallback, L"");
  EXPECT_THAT(none.table, IsEmpty());
  createKey(places.productKey() + L"\\Printers\\Drivers");
  writeValue(places.productKey() + L"\\Printers", L"FallbackDriver", RegistryValue::ofText(L"Generic PostScript"));
  writeValue(places.productKey() + L"\\Printers\\Drivers", L"HP*", RegistryValue::ofText(L"Generic PostScript"));
  writeValue(places.productKey() + L"\\Printers\\Drivers", L"Brother*", RegistryValue::ofNumber(1));
  const DriverSettings settings = DriverSettings::read(places);
  deleteKeyTree(kSettingsKey);
  EXPECT_EQ(settings.fallback, L"Generic PostScript");
  EXPECT_THAT(settings.table,
              ElementsAre(DriverMapping{L"Brother*", L""}, DriverMapping{L"HP*", L"Generic PostScript"}));
}

}  // namespace
}  // namespace admin
