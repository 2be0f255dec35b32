#include "tests/support/import_seam.h"
#include "tests/support/util/code_of.h"
#include "util/utf8_string.h"
#include "util/utl_exception.h"
#include "util/utl_string.h"

#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", MultiByteToWideChar, 0)
MG_IMPORT_SEAM(L"kernel32.dll", WideCharToMultiByte, 0)

namespace {

using tests::codeOf;

class AnsiTextTest : public testing::Test {
 protected:
  ImportSeams m_seams;
};

TEST_F(AnsiTextTest, WideTextIsConvertedByTheSystemsCodePageWithoutFlagsAndOnce) {
  int calls = 0;
  WideCharToMultiByteSeam.watch = [&](UINT page, DWORD flags, LPCWCH, int length, LPSTR, int size, LPCCH character,
                                      LPBOOL used) {
    EXPECT_EQ(page, 0u);
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(size, calls == 0 ? 0 : 5);
    EXPECT_EQ(character, nullptr);
    EXPECT_EQ(used, nullptr);
    ++calls;
  };
  const UTL_String text(L"CPP12");
  EXPECT_STREQ(text.narrow(), "CPP12");
  EXPECT_STREQ(text.narrow(), "CPP12");
  EXPECT_EQ(calls, 2);  // the size and the text
}

TEST_F(AnsiTextTest, NarrowTextIsConvertedByTheSystemsCodePageWithoutFlagsAndOnce) {
  int calls = 0;
  MultiByteToWideCharSeam.watch = [&](UINT page, DWORD flags, LPCCH, int length, LPWSTR, int size) {
    EXPECT_EQ(page, 0u);
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(size, calls == 0 ? 0 : 5);
    ++calls;
  };
  const UTL_String text = UTL_String::fromNarrow("CPP12");
  EXPECT_STREQ(text.wide(), L"CPP12");
  EXPECT_STREQ(text.wide(), L"CPP12");
  EXPECT_EQ(calls, 2);
}

TEST_F(AnsiTextTest, AConversionThatFailsAtTheSizeOrAtTheTextIsTriedAgainByTheNextRequest) {
  const UTL_String wide(L"CPP12");
  const UTL_String narrow = UTL_String::fromNarrow("CPP12");
  for (const int nth : {1, 2}) {
    WideCharToMultiByteSeam.fail(nth, 0);
    EXPECT_EQ(codeOf([&] { wide.narrow(); }), 11) << nth;
    MultiByteToWideCharSeam.fail(nth, 0);
    EXPECT_EQ(codeOf([&] { narrow.wide(); }), 11) << nth;
  }
  EXPECT_STREQ(wide.narrow(), "CPP12");
  EXPECT_STREQ(narrow.wide(), L"CPP12");
}

TEST_F(AnsiTextTest, AFailedComparisonIsNoEquality) {
  const UTL_String left(L"CPP12");
  const UTL_String right(L"CPP12");
  WideCharToMultiByteSeam.fail(1, 0);
  EXPECT_EQ(codeOf([&] { (void)(left == right); }), 11);
}

}  // namespace
