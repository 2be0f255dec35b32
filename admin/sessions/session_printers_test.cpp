#include "admin/sessions/session_printers.h"

#include "admin/base/failure.h"
#include "tests/support/import_seam.h"

#include <winspool.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

MG_PLAIN_SEAM(L"winspool.drv", AddPrinterW, nullptr)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

protocol::ListedSession sessionWith(const std::wstring& driver) {
  protocol::ListedPrinter printer;
  printer.localName = L"Laser-2 (session 5)";
  printer.texts[0] = L"Laser-2";
  printer.texts[protocol::Printer::kDriverText] = driver;
  protocol::ListedSession session;
  session.number = 5;
  session.printers = {printer};
  return session;
}

// A server on which those drivers are installed, and nothing is set about them.
ServerDrivers serverWith(const std::vector<std::wstring>& names) {
  ServerDrivers drivers;
  for (const std::wstring& name : names)
    drivers.installed.push_back({name, 3, 0, L"", {}});
  return drivers;
}

TEST(SessionPrinters, TakeTheClientsDriverWhenItIsInstalled) {
  const PrinterPlan plan =
      planPrinters(sessionWith(L"Own"), {L"Substitute", L"special"}, serverWith({L"Own", L"Substitute"}));
  ASSERT_THAT(plan.printers, SizeIs(1));
  EXPECT_EQ(plan.printers[0].name, L"Laser-2 (session 5)");
  EXPECT_EQ(plan.printers[0].port, L"CPP5");
  EXPECT_EQ(plan.printers[0].driver, L"Own");
  EXPECT_EQ(plan.printers[0].processor, L"special");
  EXPECT_EQ(plan.printers[0].comment, L"Client printer: Laser-2");
  EXPECT_THAT(plan.refused, IsEmpty());
}

TEST(SessionPrinters, TakeTheSubstituteWhenTheClientsDriverIsMissing) {
  const PrinterPlan plan = planPrinters(sessionWith(L"Own"), {L"Substitute", L""}, serverWith({L"Substitute"}));
  ASSERT_THAT(plan.printers, SizeIs(1));
  EXPECT_EQ(plan.printers[0].driver, L"Substitute");
  EXPECT_EQ(plan.printers[0].processor, L"winprint");
}

TEST(SessionPrinters, AreRefusedByTheNameOfTheMissingDriver) {
  const PrinterPlan plan = planPrinters(sessionWith(L"Own"), {L"Substitute", L""}, serverWith({L"Another"}));
  EXPECT_THAT(plan.printers, IsEmpty());
  ASSERT_THAT(plan.refused, SizeIs(1));
  EXPECT_EQ(plan.refused[0].name, L"Laser-2 (session 5)");
  EXPECT_EQ(
      plan.refused[0].why,
      "printer \"Laser-2 (session 5)\" needs the driver \"Own\", which is not installed, nor is \"Substitute\" in "
      "its place");
  EXPECT_EQ(plan.refused[0].remedy, kDriverRemedy);
}

TEST(SessionPrinters, TakeTheDriverThatTheRegistrySetsUnlessTheOptionsNameOne) {
  ServerDrivers drivers = serverWith({L"Substitute", L"Fallback"});
  drivers.settings.fallback = L"Fallback";
  EXPECT_EQ(planPrinters(sessionWith(L"Own"), {}, drivers).printers.at(0).driver, L"Fallback");
  EXPECT_EQ(planPrinters(sessionWith(L"Own"), {L"Substitute", L""}, drivers).printers.at(0).driver, L"Substitute");
}

TEST(SessionPrinters, AreRefusedWhenTheirOnlyDriverSendsXps) {
  ServerDrivers drivers;
  drivers.installed = {{L"Microsoft IPP Class Driver", 4, 8, L"", {}}};
  const PrinterPlan plan = planPrinters(sessionWith(L"Microsoft IPP Class Driver"), {}, drivers);
  EXPECT_THAT(plan.printers, IsEmpty());
  ASSERT_THAT(plan.refused, SizeIs(1));
  EXPECT_EQ(plan.refused[0].why,
            "printer \"Laser-2 (session 5)\" cannot have the driver \"Microsoft IPP Class Driver\", which sends XPS "
            "(version 4)");
  EXPECT_EQ(plan.refused[0].remedy,
            "Install the driver, or name one that is installed and sends PostScript: mgprintmon install --driver NAME; "
            "\"mgprintmon drivers\" shows which can be used.");
}

TEST(SessionPrinters, OneThatTheSpoolerRefusesKeepsNoneOfTheOthersFromComingUp) {
  ImportSeams seams;
  std::vector<std::wstring> tried;
  AddPrinterWSeam.replacement = [&tried](wchar_t*, DWORD, BYTE* record) -> HANDLE {
    const std::wstring name = reinterpret_cast<PRINTER_INFO_2W*>(record)->pPrinterName;
    tried.push_back(name);
    SetLastError(name == L"bad" ? ERROR_INVALID_PRINTER_NAME : ERROR_DISK_FULL);
    return name == L"good" || name == L"last" ? reinterpret_cast<HANDLE>(7) : nullptr;
  };
  ClosePrinterSeam.replacement = [](HANDLE) { return TRUE; };
  SessionChange change;
  const auto named = [](const wchar_t* name) { return SpoolerPrinter{name, L"CPP5", L"d", L"p", L"c"}; };
  makePrinters({named(L"good"), named(L"bad"), named(L"full"), named(L"kept"), named(L"last")}, {named(L"kept")},
               change);
  EXPECT_THAT(tried, ElementsAre(L"good", L"bad", L"full", L"last"));
  EXPECT_THAT(change.added, ElementsAre(L"good", L"last"));
  EXPECT_THAT(change.kept, ElementsAre(L"kept"));
  ASSERT_THAT(change.refused, SizeIs(2));
  EXPECT_EQ(change.refused[0].name, L"bad");
  EXPECT_EQ(change.refused[0].why, "printer \"bad\" cannot be added: " + errorWords(ERROR_INVALID_PRINTER_NAME));
  EXPECT_EQ(change.refused[0].remedy, "Give the printer another name at its client.");
  EXPECT_EQ(change.refused[1].why, "printer \"full\" cannot be added: " + errorWords(ERROR_DISK_FULL));
  EXPECT_FALSE(change.refused[1].remedy.empty());
}

TEST(SessionPrinters, AreMissingWhenTheSpoolerHasNoneOfThatName) {
  const protocol::ListedSession session = sessionWith(L"Own");
  EXPECT_THAT(missingHere(session, {}), ElementsAre(L"Laser-2 (session 5)"));
  EXPECT_THAT(missingHere(session, {{L"Laser-2 (session 5)", L"CPP5", L"", L"", L""}}), IsEmpty());
}

TEST(SessionPrinters, TheDefaultIsTheOneThatTheClientSays) {
  protocol::ListedSession session = sessionWith(L"Own");
  EXPECT_EQ(defaultPrinterOf(session), L"");
  session.printers[0].isDefault = true;
  EXPECT_EQ(defaultPrinterOf(session), L"Laser-2 (session 5)");
}

TEST(SessionJson, HasTheWordOfAFormatOrSaysThatThereIsNone) {
  protocol::ListedSession session = sessionWith(L"Own");
  session.printers[0].format = protocol::DataFormat::kPdf;
  EXPECT_EQ(sessionJson(session)["printers"][0]["format"], "pdf");
  session.printers[0].format = static_cast<protocol::DataFormat>(9);
  EXPECT_EQ(sessionJson(session)["printers"][0]["format"], "unknown");
}

}  // namespace
}  // namespace admin
