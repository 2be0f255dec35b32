#include "corvane/base/text.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(Printable, LeavesWhatCanBeSeenAsItIs) {
  for (const char* text :
       {"", "Laser-2 (session 5)", "\xC3\xA4\xC3\x96\xE2\x82\xAC", "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D",
        "\xF0\x9F\x96\xA8", "\xE2\x9C\x82\xEF\xB8\x8F", "a~ \xC2\xA0z"}) {
    EXPECT_EQ(printable(std::string_view(text)), text);
  }
}

TEST(Printable, LineBreaksAndTabsAreBlanks) {
  EXPECT_EQ(printable(std::string_view("a\r\nb\tc")), "a  b c");
}

TEST(Printable, WhatSteersATerminalIsAQuestionMark) {
  EXPECT_EQ(printable(std::string_view("\x1b[2J\x7f")), "?[2J?");
  EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a?b");
  EXPECT_EQ(printable(std::string_view("\xC2\x80\xC2\x85\xC2\x9B\xC2\x9F")), "????");
}

TEST(Printable, WhatTurnsTheDirectionOrHasNoWidthIsAQuestionMark) {
  EXPECT_EQ(printable(std::wstring_view(L"invoice\u202Efdp.exe")), "invoice?fdp.exe");
  for (const wchar_t c : {L'\u00AD', L'\u034F', L'\u061C', L'\u115F', L'\u180E', L'\u200B', L'\u200D', L'\u200E',
                          L'\u200F', L'\u2028', L'\u2029', L'\u202A', L'\u202C', L'\u202D', L'\u2060', L'\u2066',
                          L'\u2069', L'\u206F', L'\u3164', L'\uFEFF', L'\uFFA0', L'\uFFF9', L'\uFFFB'}) {
    EXPECT_EQ(printable(std::wstring(L"a") + c + L"b"), "a?b") << std::hex << static_cast<unsigned>(c);
  }
  EXPECT_EQ(printable(std::string_view("a\xF3\xA0\x81\x81z")), "a?z");  // a tag character
}

TEST(Printable, NextToTheHiddenOnesNothingIsTouched) {
  for (const char32_t point : {0x20, 0x7E, 0xA0, 0xAC, 0xAE, 0x34E, 0x350, 0x200A, 0x2010, 0x2027, 0x202F, 0x205F,
                               0x2070, 0xFFFC, 0xFFFD, 0xFE0F, 0x1F5A8, 0xE0100, 0x10FFFD})
    EXPECT_TRUE(isPrintable(point)) << std::hex << static_cast<unsigned>(point);
  for (const char32_t point :
       {0x0, 0x1F, 0x7F, 0x9F, 0x200B, 0x202E, 0x206F, 0xD800, 0xDFFF, 0xFFFE, 0xFFFF, 0xE0001, 0xE0FFF, 0x110000})
    EXPECT_FALSE(isPrintable(point)) << std::hex << static_cast<unsigned>(point);
}

TEST(Printable, WhatIsNoTextIsAReplacementCharacter) {
  EXPECT_EQ(printable(std::string_view("a\xFF\xC3z")), "a\xEF\xBF\xBD\xEF\xBF\xBDz");
  const wchar_t alone[] = {L'a', static_cast<wchar_t>(0xD83D), L'z', L'\0'};
  EXPECT_EQ(printable(std::wstring_view(alone)), "a\xEF\xBF\xBDz");
}

TEST(Printable, InPlaceATextBecomesTheSame) {
  const wchar_t alone[] = {L'a', static_cast<wchar_t>(0xD83D), L'z', static_cast<wchar_t>(0xDC01), L'\0'};
  const wchar_t last[] = {L'a', static_cast<wchar_t>(0xD83D), L'\0'};
  for (const std::wstring& text :
       {std::wstring(), std::wstring(L"Laser-2 \u00e4\u20ac \u05d3 \U0001F5A8"),
        std::wstring(L"a\r\nb\tc\x1b[2J\x7f\x85"), std::wstring(L"invoice\u202Efdp.exe\u2066\u2069\u200B\uFEFF"),
        std::wstring(L"a\U000E0041z\U000E0001"), std::wstring(alone), std::wstring(last)}) {
    std::wstring changed = text;
    makePrintable(changed.data());
    EXPECT_EQ(toUtf8(changed.c_str()), printable(std::wstring_view(text)));
  }
}

}  // namespace
}  // namespace corvane
