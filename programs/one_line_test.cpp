#include "programs/one_line.h"

#include <gtest/gtest.h>

namespace programs {
namespace {

TEST(OneLine, IsQuotedWithWhatItHidesShown) {
  EXPECT_EQ(quoted(L"Laser 2"), "\"Laser 2\"");
  EXPECT_EQ(quoted(L"a\nb"), "\"" + oneLine(L"a\nb") + "\"");
}

TEST(OneLine, KeepsPrintableText) {
  EXPECT_EQ(oneLine(L"Laser-2 \u00e4\u20ac"), "Laser-2 \xC3\xA4\xE2\x82\xAC");
}

TEST(OneLine, TurnsLineBreaksAndTabsIntoSpaces) {
  EXPECT_EQ(oneLine(L"a\r\nb\tc"), "a  b c");
}

TEST(OneLine, ReplacesControlCharactersThatCouldSteerATerminal) {
  EXPECT_EQ(oneLine(std::wstring(L"\x1b[2J\x7f\x9b\0", 7)), "?[2J???");
}

TEST(OneLine, ReplacesWhatTurnsTheDirectionOfWriting) {
  EXPECT_EQ(oneLine(L"invoice\u202Efdp.exe"), "invoice?fdp.exe");
}

TEST(OneLine, CutsALongTextBetweenCharacters) {
  const std::string line = oneLine(std::wstring(3000, L'\u00e4'));
  EXPECT_EQ(line.size(), kLineBytes + 3);
  EXPECT_EQ(line.substr(line.size() - 5), "\xC3\xA4...");
}

}  // namespace
}  // namespace programs
