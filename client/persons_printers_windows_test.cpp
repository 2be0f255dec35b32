#include "client/persons_printers.h"
#include "tests/support/import_seam.h"

#include <windows.h>
#include <winspool.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <gmock/gmock.h>
#include <stdexcept>

MG_PLAIN_SEAM(L"winspool.drv", DeviceCapabilitiesW, -1)
MG_PLAIN_SEAM(L"winspool.drv", EnumPrintersW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetDefaultPrinterW, FALSE)

namespace printclient {
namespace {

// A printer of the system, and what its driver says; each test names its own, as a driver is asked once.
struct SystemPrinter {
  const wchar_t* name;
  const wchar_t* port = L"LPT1:";
  const wchar_t* comment = L"";
  int colour = -1, duplex = -1;
  std::vector<std::wstring> papers = {};
  std::vector<std::array<LONG, 2>> resolutions = {};
  DEVMODEW mode = {};
};

class PrintersOfWindows : public testing::Test {
 protected:
  PrintersOfWindows() {
    EnumPrintersWSeam.replacement = [this](DWORD, LPWSTR, DWORD, LPBYTE buffer, DWORD size, LPDWORD needed,
                                           LPDWORD count) -> WINBOOL {
      *needed = static_cast<DWORD>(printers.size() * sizeof(PRINTER_INFO_2W));
      if (size < *needed) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
      }
      *count = 0;
      for (SystemPrinter& printer : printers) {
        auto& record = reinterpret_cast<PRINTER_INFO_2W*>(buffer)[(*count)++];
        record = {};
        record.pPrinterName = const_cast<wchar_t*>(printer.name);
        record.pPortName = const_cast<wchar_t*>(printer.port);
        record.pComment = const_cast<wchar_t*>(printer.comment);
        record.pDriverName = const_cast<wchar_t*>(L"A driver");
        record.pDevMode = &printer.mode;
      }
      return TRUE;
    };
    GetDefaultPrinterWSeam.replacement = [](LPWSTR name, LPDWORD) -> WINBOOL {
      std::wcscpy(name, L"Second");
      return TRUE;
    };
    DeviceCapabilitiesWSeam.replacement = [this](LPCWSTR name, LPCWSTR, WORD what, LPWSTR room, CONST DEVMODEW*) {
      ++asked;
      return answer(name, what, room);
    };
  }

  int answer(const std::wstring& name, WORD what, wchar_t* room) {
    const auto printer =
        std::find_if(printers.begin(), printers.end(), [&](const SystemPrinter& one) { return one.name == name; });
    if (what == DC_COLORDEVICE) return printer->colour;
    if (what == DC_DUPLEX) return printer->duplex;
    if (what == DC_ENUMRESOLUTIONS) {
      if (room != nullptr)
        std::copy(printer->resolutions.begin(), printer->resolutions.end(),
                  reinterpret_cast<std::array<LONG, 2>*>(room));
      return static_cast<int>(printer->resolutions.size());
    }
    for (std::size_t i = 0; room != nullptr && i < printer->papers.size(); ++i)
      std::wcsncpy(room + i * 64, printer->papers[i].c_str(), 64);
    return static_cast<int>(printer->papers.size());
  }

  ImportSeams seams;
  std::vector<SystemPrinter> printers;
  int asked = 0;
};

TEST_F(PrintersOfWindows, SayWhatTheirDriversAndSettingsSay) {
  SystemPrinter first{L"First", L"LPT1:", L"By the door", 1, 0, {L"Letter", L"A4"}, {{300, 300}, {1200, 600}}};
  SystemPrinter second = first;
  second.name = L"Second";
  second.comment = L"";
  second.colour = 0;
  second.duplex = 1;
  second.mode.dmFields = DM_PRINTQUALITY | DM_FORMNAME;
  second.mode.dmPrintQuality = 600;
  std::wcscpy(second.mode.dmFormName, L"A4");
  printers = {first, second};
  const std::vector<PrinterOption> found = systemPrinters();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].printer.texts[1], L"By the door, colour, one-sided, 1200 dpi, paper Letter, A4");
  EXPECT_EQ(found[0].printer.resolution, 1200);
  EXPECT_EQ(found[0].printer.driver(), L"A driver");
  EXPECT_FALSE(found[0].printer.isDefault);
  EXPECT_EQ(found[1].printer.texts[1], L"black and white, two-sided, 600 dpi, paper A4, Letter");
  EXPECT_EQ(found[1].printer.resolution, 600);
  EXPECT_TRUE(found[1].printer.isDefault);
}

TEST_F(PrintersOfWindows, WhoseDriverSaysNothingComeAllTheSame) {
  SystemPrinter silent{L"Silent"};
  silent.mode.dmFields = DM_PRINTQUALITY;
  silent.mode.dmPrintQuality = DMRES_HIGH;  // a word, and not a number of dots
  printers = {silent};
  const std::vector<PrinterOption> found = systemPrinters();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_FALSE(found[0].printer.texts[1]);
  EXPECT_EQ(found[0].printer.resolution, 0);
}

TEST_F(PrintersOfWindows, ADriverIsAskedOnceAndThePrintersSettingsEachTime) {
  printers = {{L"Asked once", L"LPT1:", L"", 1, 1, {L"A4", std::wstring(64, L'p')}, {{600, 600}}}};
  EXPECT_EQ(systemPrinters().at(0).printer.resolution, 600);
  const int before = asked;
  printers[0].mode.dmFields = DM_PRINTQUALITY;
  printers[0].mode.dmPrintQuality = 300;
  EXPECT_EQ(systemPrinters().at(0).printer.texts[1],
            L"colour, two-sided, 300 dpi, paper A4, " + std::wstring(64, L'p'));
  EXPECT_EQ(asked, before);
}

TEST_F(PrintersOfWindows, ThoseOfSessionsHereAreNotAskedAndDoNotCome) {
  printers = {{L"Laser (session 5)", L"CPP5"}};
  EXPECT_TRUE(systemPrinters().empty());
  EXPECT_EQ(asked, 0);
}

}  // namespace
}  // namespace printclient
