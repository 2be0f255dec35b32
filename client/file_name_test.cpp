#include "client/job_file.h"
#include "corvane/base/text.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <initializer_list>
#include <utility>
#include <vector>

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

TEST(FileName, NothingInItCanHideOrTurnItsEndingRound) {
  std::vector<char32_t> points = {0x00AD, 0x034F, 0x061C, 0x180E, 0x2028, 0x2029, 0xFEFF, 0xFFFB, 0xE0001, 0xE007F};
  for (const auto& [first, last] : std::initializer_list<std::pair<char32_t, char32_t>>{
           {0x01, 0x1F}, {0x7F, 0x9F}, {0x200B, 0x200F}, {0x202A, 0x202E}, {0x2060, 0x206F}}) {
    for (char32_t point = first; point <= last; ++point)
      points.push_back(point);
  }
  for (const char32_t point : points) {
    std::string utf8 = "invoice";
    corvane::appendUtf8(utf8, point);
    EXPECT_EQ(pdfName(corvane::fromUtf8(utf8 + "fdp.exe")), "invoicefdp.exe") << std::hex << std::uint32_t{point};
    EXPECT_EQ(fileNameFor(L"", corvane::fromUtf8(utf8), ".pdf"), "invoice") << std::hex << std::uint32_t{point};
  }
}

// Right to left is how they are written; the ending stays at the end.
TEST(FileName, LettersOfEveryScriptStay) {
  const std::string name = "\xD7\x93\xD7\x95\xD7\x97 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x96\xA8 e\xCC\x81";
  EXPECT_EQ(pdfName(corvane::fromUtf8(name)), name);
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
