#include "client/file_name.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

std::string pdfName(std::wstring_view document) {
  return fileNameFor(document, L"Laser-2 - Job #17", ".pdf");
}

TEST(FileName, KeepsAnOrdinaryName) {
  EXPECT_EQ(pdfName(L"Report 2024 (final)"), "Report 2024 (final)");
}

TEST(FileName, NeverLeavesTheFolder) {
  EXPECT_EQ(pdfName(L"../../etc/passwd"), "-..-etc-passwd");
  EXPECT_EQ(pdfName(L"C:\\Users\\x\\plan.docx"), "C--Users-x-plan.docx");
  EXPECT_EQ(pdfName(L"http://a/b?c=*\"<>|"), "http---a-b-c=-----");
}

TEST(FileName, DropsControlAndDirectionCharacters) {
  EXPECT_EQ(pdfName(std::wstring_view(L"a\0b\nc\x7f", 6)), "abc");
  EXPECT_EQ(pdfName(L"a\u202Efdp.exe\uFEFF"), "afdp.exe");
}

TEST(FileName, TakesDotsAndBlanksOffTheEnds) {
  EXPECT_EQ(pdfName(L" ..hidden. . "), "hidden");
}

TEST(FileName, DoesNotRepeatTheExtension) {
  EXPECT_EQ(pdfName(L"Report.pdf"), "Report");
  EXPECT_EQ(pdfName(L"Report.PDF"), "Report");
  EXPECT_EQ(pdfName(L"Report.docx"), "Report.docx");
  EXPECT_EQ(pdfName(L".pdf"), "pdf");
}

TEST(FileName, ReservedDeviceNamesGetAnUnderscore) {
  for (const wchar_t* name : {L"CON", L"nul", L"com1", L"LPT9", L"Aux.txt", L"PRN .x", L"COM\u00b9"}) {
    EXPECT_EQ(pdfName(name).front(), '_') << pdfName(name);
  }
  EXPECT_EQ(pdfName(L"COM10"), "COM10");
  EXPECT_EQ(pdfName(L"CONTRACT"), "CONTRACT");
}

TEST(FileName, WithoutANameTheFallbackIsUsed) {
  EXPECT_EQ(pdfName(L""), "Laser-2 - Job #17");
  EXPECT_EQ(pdfName(L" ... "), "Laser-2 - Job #17");
  EXPECT_EQ(fileNameFor(L"", L"", ".pdf"), "job");
}

TEST(FileName, IsCutBetweenCharacters) {
  EXPECT_EQ(pdfName(std::wstring(500, L'x')).size(), 200u);
  const std::string euros = pdfName(std::wstring(500, L'\u20ac'));
  EXPECT_EQ(euros.size(), 198u);  // 66 characters of three bytes
  EXPECT_EQ(euros.substr(195), "\xE2\x82\xAC");
}

TEST(FileName, AnUnpairedSurrogateBecomesTheReplacementCharacter) {
  EXPECT_EQ(pdfName(std::wstring(L"a") + static_cast<wchar_t>(0xD800) + L"b"),
            "a\xEF\xBF\xBD"
            "b");
}

TEST(FileName, ANumberStandsBeforeTheExtension) {
  EXPECT_EQ(numberedName("Report", ".pdf", 1), "Report.pdf");
  EXPECT_EQ(numberedName("Report", ".pdf", 2), "Report (2).pdf");
}

}  // namespace
}  // namespace printclient
