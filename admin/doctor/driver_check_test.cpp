#include "admin/base/failure.h"
#include "admin/doctor/checks.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

protocol::ListedSession sessionWith(const std::wstring& name, int format) {
  protocol::ListedPrinter printer;
  printer.localName = name;
  printer.format = static_cast<protocol::DataFormat>(format);
  protocol::ListedSession session;
  session.number = 5;
  session.printers = {printer};
  return session;
}

TEST(DriverCheck, KnowsOtherLanguagesByTheNamesOfDrivers) {
  EXPECT_EQ(otherLanguageOf(L"HP Universal Printing PCL 6"), "PCL");
  EXPECT_EQ(otherLanguageOf(L"Brother PCL5e Driver"), "PCL");
  EXPECT_EQ(otherLanguageOf(L"Microsoft XPS Document Writer v4"), "XPS");
  EXPECT_EQ(otherLanguageOf(L"EPSON ESC/P-R V4 Class Driver"), "ESC/P");
  EXPECT_EQ(otherLanguageOf(L"Canon Generic Plus UFR II"), "UFR");
  EXPECT_EQ(otherLanguageOf(L"Generic / Text Only"), "text");
  for (const wchar_t* driver :
       {L"Generic PostScript", L"HP Universal Printing PS", L"", L"Topcl", L"MS Publisher Imagesetter"})
    EXPECT_EQ(otherLanguageOf(driver), "") << driver;
}

TEST(DriverCheck, NamesPrintersWhoseDocumentsWouldArriveUnconverted) {
  const std::vector<SpoolerPrinter> present = {{L"Laser", L"CPP5", L"HP PCL 6", L"", L""},
                                               {L"Ink", L"CPP5", L"Generic PostScript", L"", L""}};
  try {
    checkDrivers({sessionWith(L"Laser", 3), sessionWith(L"Ink", 3)}, present);
    ADD_FAILURE() << "it is well";
  } catch (const Failure& failure) {
    EXPECT_EQ(std::string(failure.what()),
              "by their names these drivers send no PostScript, and their documents arrive unconverted: \"Laser\" has "
              "\"HP PCL 6\" (PCL)");
  }
  EXPECT_EQ(checkDrivers({sessionWith(L"Laser", 1), sessionWith(L"Ink", 3)}, present),
            "1 printer wants PDF: a document is converted only when it begins with %!, so the driver has to send "
            "PostScript without PJL or Ctrl-D in front");
  EXPECT_EQ(checkDrivers({sessionWith(L"Laser", 2), sessionWith(L"Gone", 3)}, present), "no printer here wants PDF");
}

ServerDrivers serverDrivers() {
  ServerDrivers drivers;
  drivers.installed = {{L"Generic PostScript", 3, 0, L"", {}}, {L"Microsoft IPP Class Driver", 4, 8, L"", {}}};
  return drivers;
}

// What the check says is wrong.
std::string complaint(const std::vector<protocol::ListedSession>& sessions, const std::vector<SpoolerPrinter>& present,
                      const ServerDrivers& drivers) {
  try {
    return "well: " + checkServerDrivers(sessions, present, drivers);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.remedy(),
              "Name drivers that are installed and send PostScript, with mgprintmon install --driver NAME and "
              "mgprintmon drivers map PATTERN NAME; \"mgprintmon drivers\" shows which can be used.");
    return failure.what();
  }
}

TEST(ServerDriverCheck, SaysHowManyDriversCanBeUsedAndWhatIsSet) {
  ServerDrivers drivers = serverDrivers();
  EXPECT_EQ(complaint({}, {}, drivers),
            "well: 1 of 2 can be used; no FallbackDriver is set: printers whose own driver cannot be used are refused");
  drivers.settings.fallback = L"Generic PostScript";
  EXPECT_EQ(complaint({}, {}, drivers), "well: 1 of 2 can be used; FallbackDriver is \"Generic PostScript\"");
}

TEST(ServerDriverCheck, NamesWhatIsSetAndCannotBeUsed) {
  ServerDrivers drivers = serverDrivers();
  drivers.settings.fallback = L"Microsoft IPP Class Driver";
  drivers.settings.table = {{L"HP*", L"Gone"}, {L"Brother*", L"Generic PostScript"}};
  EXPECT_EQ(complaint({}, {}, drivers),
            "FallbackDriver \"Microsoft IPP Class Driver\" sends XPS and cannot be used (version 4); the driver for "
            "\"HP*\", \"Gone\" is not installed");
}

TEST(ServerDriverCheck, NamesPrintersOfSessionsThatSendXpsOrGetNoDriver) {
  protocol::ListedSession session = sessionWith(L"Laser", 3);
  const std::vector<SpoolerPrinter> present = {{L"Laser", L"CPP5", L"Microsoft IPP Class Driver", L"", L""},
                                               {L"Other", L"LPT1:", L"Microsoft IPP Class Driver", L"", L""}};
  EXPECT_EQ(complaint({session}, present, serverDrivers()),
            "printer \"Laser\" has the driver \"Microsoft IPP Class Driver\" here, which sends XPS (version 4)");
  session.isConnected = true;
  EXPECT_EQ(complaint({session}, {}, serverDrivers()), "printer \"Laser\" names no driver");
  session.number = 900000001;
  EXPECT_EQ(complaint({session}, present, serverDrivers()).substr(0, 5), "well:");
}

}  // namespace
}  // namespace admin
