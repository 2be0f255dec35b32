#include "admin/session_printers.h"

#include <gmock/gmock.h>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

SessionFacts sessionWith(const std::wstring& driver) {
  ClientPrinterFacts printer;
  printer.localName = L"Laser-2 (session 5)";
  printer.texts[0] = L"Laser-2";
  printer.texts[programs::kDriverText] = driver;
  SessionFacts session;
  session.number = 5;
  session.printers = {printer};
  return session;
}

TEST(SessionPrinters, TakeTheClientsDriverWhenItIsInstalled) {
  const PrinterPlan plan = planPrinters(sessionWith(L"Own"), {L"Substitute", L"special"}, {L"Own", L"Substitute"});
  ASSERT_THAT(plan.printers, SizeIs(1));
  EXPECT_EQ(plan.printers[0].name, L"Laser-2 (session 5)");
  EXPECT_EQ(plan.printers[0].port, L"CPP5");
  EXPECT_EQ(plan.printers[0].driver, L"Own");
  EXPECT_EQ(plan.printers[0].processor, L"special");
  EXPECT_EQ(plan.printers[0].comment, L"Client printer: Laser-2");
  EXPECT_THAT(plan.refused, IsEmpty());
}

TEST(SessionPrinters, TakeTheSubstituteWhenTheClientsDriverIsMissing) {
  const PrinterPlan plan = planPrinters(sessionWith(L"Own"), {L"Substitute", L""}, {L"Substitute"});
  ASSERT_THAT(plan.printers, SizeIs(1));
  EXPECT_EQ(plan.printers[0].driver, L"Substitute");
  EXPECT_EQ(plan.printers[0].processor, L"winprint");
}

TEST(SessionPrinters, AreRefusedByTheNameOfTheMissingDriver) {
  const PrinterPlan plan = planPrinters(sessionWith(L"Own"), {L"Substitute", L""}, {L"Another"});
  EXPECT_THAT(plan.printers, IsEmpty());
  EXPECT_THAT(plan.refused, ElementsAre("printer \"Laser-2 (session 5)\" needs the driver \"Own\", which is not "
                                        "installed, nor is \"Substitute\" in its place"));
}

TEST(SessionPrinters, TheDefaultIsTheOneThatTheClientSays) {
  SessionFacts session = sessionWith(L"Own");
  EXPECT_EQ(defaultPrinterOf(session), L"");
  session.printers[0].isDefault = true;
  EXPECT_EQ(defaultPrinterOf(session), L"Laser-2 (session 5)");
}

}  // namespace
}  // namespace admin
