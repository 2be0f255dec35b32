#include "server/printer_name.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

Printer named(const std::wstring& name, int value = 1) {
  Printer printer;
  printer.texts[0] = name;
  printer.format = static_cast<protocol::DataFormat>(value);
  return printer;
}

TEST(PrinterName, BeginsWithTheClientsOwnName) {
  EXPECT_EQ(localPrinterName(L"Laser-2", 5), L"Laser-2 (session 5)");
}

TEST(PrinterName, RefusesAPrinterWithoutName) {
  EXPECT_EQ(printersRefusal({named(L"")}), L"a printer has no name");
  EXPECT_EQ(printersRefusal({Printer{}}), L"a printer has no name");
}

TEST(PrinterName, TakesTwoHundredCharactersAndNoMore) {
  EXPECT_EQ(printersRefusal({named(std::wstring(200, L'x'))}), L"");
  EXPECT_EQ(printersRefusal({named(std::wstring(201, L'x'))}),
            L"the printer name \"" + std::wstring(40, L'x') + L"...\" has 201 characters, the limit is 200");
}

TEST(PrinterName, AnotherTextTakesAThousandCharactersAndNoMore) {
  for (std::size_t text = 1; text < protocol::Printer::kTexts; ++text) {
    Printer printer = named(L"Laser");
    printer.texts[static_cast<std::size_t>(text)] = std::wstring(1024, L'x');
    EXPECT_EQ(printersRefusal({printer}), L"");
    printer.texts[static_cast<std::size_t>(text)]->push_back(L'x');
    EXPECT_EQ(printersRefusal({named(L"Ink"), printer}),
              L"the printer \"Laser\" has a description of 1025 characters, the limit is 1024; shorten it");
  }
}

TEST(PrinterName, RefusesControlCharactersAndOuterBlanks) {
  EXPECT_EQ(printersRefusal({named(L"a\nb")}), L"the printer name \"a\nb\" contains a control character");
  EXPECT_EQ(printersRefusal({named(L"Laser ")}), L"the printer name \"Laser \" begins or ends with a space");
}

TEST(PrinterName, TheCaseOfALetterOfAnyAlphabetMakesNoOtherName) {
  for (const auto& [one, other] : {std::pair(L"\u00c4rzte", L"\u00e4RZTE"), std::pair(L"\u0416", L"\u0436"),
                                   std::pair(L"\u03a9", L"\u03c9"), std::pair(L"z", L"Z")}) {
    EXPECT_EQ(foldedName(one), foldedName(other));
    EXPECT_EQ(printersRefusal({named(one), named(other)}),
              L"the printer \"" + std::wstring(other) + L"\" is listed twice; give each printer its own name");
  }
  EXPECT_NE(foldedName(L"\u00c4"), foldedName(L"A"));
  EXPECT_EQ(foldedName(L""), L"");
}

TEST(PrinterName, RefusesTheSameNameTwiceWhateverItsCase) {
  EXPECT_EQ(printersRefusal({named(L"Laser"), named(L"laser")}),
            L"the printer \"laser\" is listed twice; give each printer its own name");
}

TEST(PrinterName, IsOneThatASpoolerTakes) {
  EXPECT_EQ(localPrinterName(L"\\\\server\\laser", 5), L"--server-laser (session 5)");
  EXPECT_EQ(localPrinterName(L"A, B!/C", 5), L"A- B-/C (session 5)");
  EXPECT_EQ(localPrinterName(std::wstring(200, L'x'), 2147483647), std::wstring(199, L'x') + L" (session 2147483647)");
  EXPECT_EQ(localPrinterName(std::wstring(200, L'x'), 214748364), std::wstring(200, L'x') + L" (session 214748364)");
}

TEST(PrinterName, RefusesTwoNamesThatAreOneHere) {
  EXPECT_EQ(printersRefusal({named(L"--a-b"), named(L"\\\\A\\b")}),
            L"the printer \"\\\\A\\b\" is listed twice; give each printer its own name");
}

TEST(PrinterName, RefusesAFormatThatDoesNotExist) {
  EXPECT_EQ(printersRefusal({named(L"Laser", 4)}),
            L"the printer \"Laser\" has the format value 4; 1 (raw), 2 (PostScript) and 3 (PDF) exist");
  EXPECT_EQ(printersRefusal({named(L"A", 1), named(L"B", 2), named(L"C", 3)}), L"");
}

}  // namespace
}  // namespace aps
