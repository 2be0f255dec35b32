#include "corvane/base/text.h"

#include <gtest/gtest.h>

namespace {

using corvane::formatText;
using corvane::fromUtf16;
using corvane::fromUtf8;
using corvane::toUtf16;
using corvane::toUtf8;

TEST(Text, EveryUtf16SequenceSurvivesTheWayThroughWideText) {
  const std::vector<std::uint16_t> units = {0x41,   0xD83D, 0xDE00, 0xDC00, 0xD800, 0xD800,
                                            0xDC01, 0xFFFF, 0,      0xDFFF, 0xD800};
  const std::wstring wide = fromUtf16(units.data(), units.size());
  EXPECT_EQ(units, toUtf16(wide));
}

TEST(Text, WritesUtf8OfEveryLength) {
  const std::uint16_t units[] = {0x41, 0xE4, 0x20AC, 0xD83D, 0xDE00};
  EXPECT_EQ("A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", toUtf8(fromUtf16(units, 5)));
  EXPECT_EQ(fromUtf16(units, 5), fromUtf8("A\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"));
}

TEST(Text, EachLengthOfUtf8BeginsAndEndsWhereItShould) {
  const std::wstring ends = fromUtf8("\x7F\xDF\xBF\xEF\xBF\xBF\xF4\x8F\xBF\xBF");
  EXPECT_EQ("\x7F\xDF\xBF\xEF\xBF\xBF\xF4\x8F\xBF\xBF", toUtf8(ends));
  const std::uint16_t begins[] = {0x80, 0x800, 0xD800, 0xDC00};
  EXPECT_EQ("\xC2\x80\xE0\xA0\x80\xF0\x90\x80\x80", toUtf8(fromUtf16(begins, 4)));
}

TEST(Text, ReplacesWhatUtf8CannotHold) {
  const std::uint16_t lonely[] = {0x41, 0xD800, 0x42};
  EXPECT_EQ(
      "A\xEF\xBF\xBD"
      "B",
      toUtf8(fromUtf16(lonely, 3)));
  EXPECT_EQ(std::wstring(L"A\xFFFD") + L"B", fromUtf8("A\xFF"
                                                      "B"));
  EXPECT_EQ(std::wstring(L"\xFFFD\xFFFD"), fromUtf8("\xC0\x80"));            // overlong
  EXPECT_EQ(std::wstring(L"\xFFFD\xFFFD\xFFFD"), fromUtf8("\xED\xA0\x80"));  // a surrogate
  EXPECT_EQ(std::wstring(L"\xFFFD\xFFFD"), fromUtf8("\xE2\x82"));            // cut
}

TEST(Format, TakesWideTextForPercentS) {
  EXPECT_EQ(L"port CPP5 42 0x2a 7%", formatText(L"port %s %d 0x%x %u%%", L"CPP5", 42, 42, 7U));
  EXPECT_EQ(L"[    x] [y    ]", formatText(L"[%5s] [%-5s]", L"x", L"y"));
}

TEST(Format, GrowsAsFarAsNeededAndCutsAtItsLimit) {
  const std::wstring longText(5000, L'x');
  EXPECT_EQ(longText + L"!", formatText(L"%s!", longText.c_str()));
  const std::wstring tooLong(100000, L'y');
  const std::wstring cut = formatText(L"%s", tooLong.c_str());
  EXPECT_LE(cut.size(), 2 * corvane::kMaxFormatted);
}

}  // namespace
