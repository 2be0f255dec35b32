#include "protocol/printer.h"

#include "tests/support/protocol/wire_bytes.h"

#include <gtest/gtest.h>

namespace protocol {
namespace {

Printer describedPrinter() {
  Printer printer;
  printer.texts[Printer::kNameText] = L"L";
  printer.texts[Printer::kDriverText] = L"HP";
  printer.texts[7] = L"";
  printer.isDefault = true;
  printer.format = DataFormat::kPdf;
  printer.resolution = 600;
  return printer;
}

TEST(PrinterMessage, HasItsBytesOnTheWire) {
  EXPECT_EQ(tests::hexOf(describedPrinter()),
            tests::hex("62 01 74 01000000 4c00 62 00 62 00 62 01 74 02000000 48005000 62 00 62 00 62 00 "
                       "62 01 74 00000000 62 01 69 03000000 69 58020000"));
}

TEST(PrinterMessage, ComesBackWithEmptyTextsThatAreNotAbsent) {
  const Printer back = tests::readBack(describedPrinter());
  EXPECT_EQ(back.texts, describedPrinter().texts);
  EXPECT_EQ(back.texts[1], std::nullopt);
  EXPECT_EQ(back.texts[7], L"");
  EXPECT_TRUE(back.isDefault);
  EXPECT_EQ(back.format, DataFormat::kPdf);
  EXPECT_EQ(back.resolution, 600);
  EXPECT_EQ(back.name(), L"L");
  EXPECT_EQ(back.driver(), L"HP");
}

TEST(PrinterMessage, KeepsAFormatOfAnyNumber) {
  for (const int number : {0, 4, -1, 2147483647}) {
    Printer printer;
    printer.format = static_cast<DataFormat>(number);
    EXPECT_EQ(static_cast<int>(tests::readBack(printer).format), number);
  }
}

TEST(PrinterMessage, ATextEndsAtItsFirstNullCharacter) {
  std::vector<unsigned char> bytes = tests::bytesOf(describedPrinter());
  ASSERT_EQ(bytes[20], 'H');
  bytes[20] = 0;
  corvane::ValueReader reader = tests::readerOf(bytes);
  EXPECT_EQ(read<Printer>(reader).driver(), L"");
}

TEST(PrinterMessage, WithoutNameOrDriverHasEmptyOnes) {
  EXPECT_EQ(Printer().name(), L"");
  EXPECT_EQ(Printer().driver(), L"");
}

TEST(DataFormat, EachHasItsNumberAndItsNames) {
  EXPECT_EQ(static_cast<int>(DataFormat::kRaw), 1);
  EXPECT_EQ(static_cast<int>(DataFormat::kPostScript), 2);
  EXPECT_EQ(static_cast<int>(DataFormat::kPdf), 3);
  EXPECT_EQ(dataFormatOf("raw"), DataFormat::kRaw);
  EXPECT_EQ(dataFormatOf("ps"), DataFormat::kPostScript);
  EXPECT_EQ(dataFormatOf("pdf"), DataFormat::kPdf);
  EXPECT_EQ(namesOf(DataFormat::kPostScript)->word, "ps");
  EXPECT_EQ(namesOf(DataFormat::kPostScript)->name, L"PostScript");
  EXPECT_EQ(namesOf(DataFormat::kPdf)->word, "pdf");
}

TEST(DataFormat, OtherNumbersAndWordsAreNone) {
  for (const int number : {0, 4, -1})
    EXPECT_EQ(namesOf(static_cast<DataFormat>(number)), nullptr) << number;
  for (const char* word : {"", "PDF", "postscript", "1"})
    EXPECT_EQ(dataFormatOf(word), std::nullopt) << word;
}

}  // namespace
}  // namespace protocol
