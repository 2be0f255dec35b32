#include "programs/text.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <chrono>
#include <gtest/gtest.h>

namespace programs {
namespace {

using namespace std::chrono;

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
  const std::string odd = oneLine(L"a" + std::wstring(3000, L'\u00e4'));
  EXPECT_EQ(odd.size(), kLineBytes - 1 + 3);
  EXPECT_EQ(odd.substr(odd.size() - 5), "\xC3\xA4...");
}

TEST(OneLine, OfExactlyTheLimitIsWhole) {
  EXPECT_EQ(oneLine(std::wstring(kLineBytes, L'a')), std::string(kLineBytes, 'a'));
  EXPECT_EQ(oneLine(std::wstring(kLineBytes + 1, L'a')), std::string(kLineBytes, 'a') + "...");
}

TEST(Describe, HasTheWordsOfTheNumberWhereThereIsOne) {
  EXPECT_EQ(describe(CS_Exception(0, L"it\nbroke")), "it broke");
  EXPECT_EQ(describe(CS_Exception(corvane::kConnectFailed, L"nobody answers")),
            "The connection could not be made. nobody answers");
  EXPECT_EQ(describe(CS_Exception(corvane::kConnectFailed, nullptr)), "The connection could not be made.");
}

TEST(UtcText, IsDateAndTimeOfDayWithoutFractions) {
  EXPECT_EQ(utcText(system_clock::time_point()), L"1970-01-01T00:00:00Z");
  EXPECT_EQ(utcText(system_clock::time_point(seconds(1769903999))), L"2026-01-31T23:59:59Z");
  EXPECT_EQ(utcText(system_clock::time_point(seconds(1769903999)) + milliseconds(999)), L"2026-01-31T23:59:59Z");
  EXPECT_EQ(utcText(system_clock::time_point(seconds(1709208000))), L"2024-02-29T12:00:00Z");
}

TEST(LocalTime, IsThatOfTheWireInLocalTimeWithItsOffset) {
  const system_clock::time_point time = sys_days(year(2026) / 7 / 31) + hours(23) + minutes(58) + seconds(59);
  EXPECT_EQ(localTime(L"2026-07-31T23:58:59Z"), corvane::localTimeText(time));
  EXPECT_EQ(localTime(L"2026-07-31T23:59:59Z"), corvane::localTimeText(time + minutes(1)));
  const std::wstring_view sentence = L"2026-07-31T23:58:59Z, in the night";
  EXPECT_EQ(localTime(sentence.substr(0, 20)), corvane::localTimeText(time));
  EXPECT_EQ(localTime(L"2026-07-31T23:58:59Z").size(), std::string("2026-07-31 23:58:59 +0000").size());
}

TEST(LocalTime, WhatIsNoTimeStaysAsItIsOnOneLine) {
  for (const char* text : {"", "soon", "2026-13-01T00:00:00Z", "2026-02-30T00:00:00Z", "2026-01-31T24:00:00Z",
                           "2026-01-31T23:60:00Z", "2026-01-31T23:59:60Z", "2026-01-31 23:59:59Z",
                           "2026-01-31T23:59:59", "2026-01-31T23:59:59ZZ", "20a6-01-31T23:59:59Z"}) {
    EXPECT_EQ(localTime(std::wstring(text, text + std::char_traits<char>::length(text))), text);
  }
  EXPECT_EQ(localTime(L"soon\n\x1b[2J"), "soon ?[2J");
}

TEST(LastLine, IsTheLastOneThatHoldsMoreThanBlanks) {
  EXPECT_EQ(lastLine(""), "");
  EXPECT_EQ(lastLine(" \r\n\t\n"), "");
  EXPECT_EQ(lastLine("one"), "one");
  EXPECT_EQ(lastLine("one\r\n  two  \r\n\r\n"), "two");
}

}  // namespace
}  // namespace programs
