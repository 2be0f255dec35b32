#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/util/code_of.h"
#include "util/utf8_string.h"
#include "util/utl_exception.h"
#include "util/utl_string.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", ExpandEnvironmentStringsA, 0)
MG_IMPORT_SEAM(L"kernel32.dll", ExpandEnvironmentStringsW, 0)
MG_IMPORT_SEAM(L"kernel32.dll", GetShortPathNameW, 0)

namespace {

template <typename Call>
int codeWithoutMemory(Call call) {
  const FailingNew failing(1);
  return tests::codeOf(call);
}

class UtlStringFailureTest : public testing::Test {
 protected:
  ImportSeams m_seams;
};

TEST_F(UtlStringFailureTest, WithoutMemoryEveryOperationThrowsItsCodeAndKeepsTheText) {
  UTL_String text(L"before");
  const UTL_String narrow = UTL_String::fromNarrow("before");
  EXPECT_EQ(codeWithoutMemory([&] { UTL_String made(L"a"); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { UTL_String::fromNarrow("a"); }), 3);
  // NOLINTBEGIN(performance-unnecessary-copy-initialization): the copy is the question
  EXPECT_EQ(codeWithoutMemory([&] { UTL_String copy(text); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { UTL_String copy(narrow); }), 3);
  // NOLINTEND(performance-unnecessary-copy-initialization)
  EXPECT_EQ(codeWithoutMemory([&] { text = L"after"; }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { text.append(L"after"); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { text.formatWide(9, L"after"); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { text.formatNarrow(9, "after"); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { text.expandEnvironment(); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { text.toUpper(); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { text.narrow(); }), 3);
  EXPECT_EQ(codeWithoutMemory([&] { narrow.wide(); }), 3);
  EXPECT_STREQ(text.wide(), L"before");
  EXPECT_STREQ(text.narrow(), "before");
  EXPECT_EQ(text.length(), 6u);
  UTF8String utf8(L"before");
  EXPECT_EQ(codeWithoutMemory([&] { UTF8String made("a", 1); }), 3);
  utf8 = L"a text that is too long to stand in the string itself";
  EXPECT_EQ(codeWithoutMemory([&] { utf8.bytes(); }), 3);
}

TEST_F(UtlStringFailureTest, AMissingFormatAndOneForNoMemoryInTheWorldKeepTheText) {
  UTL_String text(L"before");
  EXPECT_EQ(tests::codeOf([&] { text.formatNarrow(9, nullptr); }), 1);
  EXPECT_EQ(tests::codeOf([&] { text.formatWide(9, nullptr); }), 1);
  EXPECT_EQ(tests::codeOf([&] { text.formatNarrow(SIZE_MAX, "after"); }), 3);
  EXPECT_EQ(tests::codeOf([&] { text.formatWide(SIZE_MAX, L"after"); }), 3);
  EXPECT_STREQ(text.wide(), L"before");
}

TEST_F(UtlStringFailureTest, AWindowsCallThatFailsAfterItToldItsSizeKeepsTheText) {
  UTL_String wide(L"%TEMP%");
  ExpandEnvironmentStringsWSeam.fail(2, 0);
  EXPECT_EQ(tests::codeOf([&] { wide.expandEnvironment(); }), 1);
  EXPECT_STREQ(wide.wide(), L"%TEMP%");
  UTL_String narrow = UTL_String::fromNarrow("%TEMP%");
  ExpandEnvironmentStringsASeam.fail(1, 0);
  EXPECT_EQ(tests::codeOf([&] { narrow.expandEnvironment(); }), 1);
  EXPECT_STREQ(narrow.narrow(), "%TEMP%");
}

// As Windows says of it: the buffer has room for one character more than text and terminator.
TEST_F(UtlStringFailureTest, TheNarrowExpansionGetsTheSpareCharacterThatItWants) {
  constexpr char kExpanded[] = "C:\\Temp";
  ExpandEnvironmentStringsASeam.replacement = [&](LPCSTR, LPSTR buffer, DWORD size) -> DWORD {
    if (size >= sizeof kExpanded + 1) std::memcpy(buffer, kExpanded, sizeof kExpanded);
    return size < sizeof kExpanded + 1 && buffer != nullptr ? sizeof kExpanded + 1 : sizeof kExpanded;
  };
  UTL_String narrow = UTL_String::fromNarrow("%TEMP%");
  narrow.expandEnvironment();
  EXPECT_STREQ(narrow.narrow(), kExpanded);
}

TEST_F(UtlStringFailureTest, ATextThatGrewBetweenTheTwoCallsIsNotTakenInPart) {
  UTL_String path(L"C:\\Program Files");
  GetShortPathNameWSeam.replacement = [](LPCWSTR, LPWSTR buffer, DWORD) -> DWORD { return buffer == nullptr ? 4 : 99; };
  EXPECT_EQ(tests::codeOf([&] { path.shortenPath(); }), 1);
  EXPECT_STREQ(path.wide(), L"C:\\Program Files");
}

}  // namespace
