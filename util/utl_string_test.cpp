#include "util/utl_string.h"

#include "util/utl_exception.h"

#include <windows.h>

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>

TEST(UtlString, IsEmptyWhenBuiltFromNothingOrFromANullText) {
  const UTL_String empty;
  const UTL_String fromNull(static_cast<const wchar_t*>(nullptr));
  EXPECT_EQ(empty.length(), 0U);
  EXPECT_TRUE(fromNull.isEmpty());
  EXPECT_TRUE(empty == fromNull);
  EXPECT_STREQ(empty.wide(), L"");
  EXPECT_STREQ(empty.narrow(), "");
  EXPECT_TRUE(UTL_String::fromNarrow(nullptr).isEmpty());
  EXPECT_TRUE(UTL_String::fromNarrow("").isEmpty());
}

TEST(UtlString, HandsOutBothFormsOfAWideText) {
  const UTL_String text(L"CPP12");
  EXPECT_EQ(text.length(), 5U);
  EXPECT_STREQ(text.wide(), L"CPP12");
  EXPECT_STREQ(text.narrow(), "CPP12");
}

TEST(UtlString, HandsOutBothFormsOfANarrowText) {
  const UTL_String text = UTL_String::fromNarrow("CPP12");
  EXPECT_EQ(text.length(), 5U);
  EXPECT_STREQ(text.narrow(), "CPP12");
  EXPECT_STREQ(text.wide(), L"CPP12");
}

TEST(UtlString, ConvertsAFormOnlyOnce) {
  const UTL_String text(L"CPP12");
  EXPECT_EQ(text.narrow(), text.narrow());
  const UTL_String narrow = UTL_String::fromNarrow("CPP12");
  EXPECT_EQ(narrow.wide(), narrow.wide());
}

TEST(UtlString, CopiesItsTextAndNotItsBuffers) {
  UTL_String original(L"one");
  const UTL_String copy(original);
  original = L"two";
  EXPECT_STREQ(copy.wide(), L"one");
  EXPECT_STREQ(original.wide(), L"two");
  EXPECT_STREQ(UTL_String(UTL_String::fromNarrow("three")).wide(), L"three");
}

TEST(UtlString, SurvivesAssignmentFromItselfAndFromItsOwnBuffer) {
  UTL_String text(L"abcdef");
  const UTL_String& same = text;
  text = same;
  EXPECT_STREQ(text.wide(), L"abcdef");
  text = text.wide() + 2;
  EXPECT_STREQ(text.wide(), L"cdef");
  UTL_String& itself = text;
  text = std::move(itself);
  EXPECT_STREQ(text.wide(), L"cdef");
  text = static_cast<const wchar_t*>(nullptr);
  EXPECT_TRUE(text.isEmpty());
}

TEST(UtlString, LeavesAnEmptyStringBehindWhenMoved) {
  UTL_String from(L"text");
  UTL_String to(std::move(from));
  EXPECT_STREQ(to.wide(), L"text");
  EXPECT_TRUE(from.isEmpty());  // NOLINT(bugprone-use-after-move): the state after a move is what is tested
  from = std::move(to);
  EXPECT_STREQ(from.wide(), L"text");
  EXPECT_EQ(from.length(), 4U);
}

TEST(UtlString, AppendsWideTextAndForgetsTheFormerNarrowForm) {
  UTL_String text(L"C:\\temp");
  EXPECT_STREQ(text.narrow(), "C:\\temp");
  text.append(L"\\job");
  text.append(UTL_String(L".ps"));
  text.append(static_cast<const wchar_t*>(nullptr));
  EXPECT_STREQ(text.wide(), L"C:\\temp\\job.ps");
  EXPECT_STREQ(text.narrow(), "C:\\temp\\job.ps");
  EXPECT_EQ(text.length(), 14U);
}

TEST(UtlString, AppendsToANarrowOrEmptyTextAndToItself) {
  UTL_String text = UTL_String::fromNarrow("ab");
  text.append(text.wide());
  EXPECT_STREQ(text.wide(), L"abab");
  UTL_String empty;
  empty.append(L"x");
  EXPECT_STREQ(empty.narrow(), "x");
}

TEST(UtlString, ComparesCaseAndLength) {
  EXPECT_TRUE(UTL_String(L"AddPort") == UTL_String(L"AddPort"));
  EXPECT_TRUE(UTL_String(L"AddPort") == UTL_String::fromNarrow("AddPort"));
  EXPECT_TRUE(UTL_String(L"AddPort") != UTL_String(L"addport"));
  EXPECT_TRUE(UTL_String(L"AddPort") != UTL_String(L"AddPort "));
  EXPECT_TRUE(UTL_String(L"") != UTL_String(L"a"));
  EXPECT_TRUE(UTL_String(L"") == UTL_String());
}

TEST(UtlString, ComparesTheNarrowFormsEvenWhereTheyTellLessThanTheWideOnes) {
  const UTL_String middle(L"\u4e2d");
  const UTL_String text(L"\u6587");
  ASSERT_STREQ(middle.narrow(), text.narrow()) << "the code page of the tests has neither";
  EXPECT_TRUE(middle == text);
}

TEST(UtlString, OrdersByTheWideForms) {
  EXPECT_TRUE(UTL_String(L"a") < UTL_String(L"b"));
  EXPECT_TRUE(UTL_String(L"Z") < UTL_String(L"a"));
  EXPECT_TRUE(UTL_String() < UTL_String(L"a"));
  EXPECT_FALSE(UTL_String(L"a") < UTL_String(L"a"));
  // The code page has "?" for it, which would come first.
  EXPECT_TRUE(UTL_String(L"a") < UTL_String(L"\u4e2d"));
  EXPECT_FALSE(UTL_String(L"\u4e2d") < UTL_String(L"a"));
}

TEST(UtlString, CutsNothingOffALongText) {
  const std::wstring text(70000, L'n');
  UTL_String string(text.c_str());
  EXPECT_EQ(string.length(), 70000U);
  EXPECT_EQ(std::strlen(string.narrow()), 70000U);
  string.append(L"x");
  EXPECT_EQ(string.wide(), text + L"x");
}

TEST(UtlString, SurvivesTextThatTheCodePageCannotExpress) {
  const wchar_t unpaired[] = {L'a', 0xD800, L'b', 0xDC00, 0};
  for (const wchar_t* text : {static_cast<const wchar_t*>(unpaired), L"\u4e2d\u6587", L"\u0416\u042f"}) {
    UTL_String string(text);
    EXPECT_NE(string.narrow()[0], '\0');
    EXPECT_STREQ(string.wide(), text);
    EXPECT_TRUE(string == UTL_String(text));
    string.append(text);
    EXPECT_EQ(string.length(), 2 * UTL_String(text).length());
    EXPECT_NE(string.narrow()[0], '\0');
  }
}

TEST(UtlString, SurvivesBytesThatTheCodePageDoesNotKnow) {
  const UTL_String text = UTL_String::fromNarrow("\x81\xff\x8d");
  EXPECT_EQ(text.length(), 3U);
  EXPECT_NE(text.wide()[0], L'\0');
}

TEST(UtlString, FormatsNarrowAndWideText) {
  UTL_String text;
  text.formatNarrow(32, "%s-%d", "job", 42);
  EXPECT_STREQ(text.narrow(), "job-42");
  EXPECT_STREQ(text.wide(), L"job-42");
  EXPECT_EQ(text.length(), 6U);
  text.formatWide(32, L"%s-%d.ps", L"job", 43);
  EXPECT_STREQ(text.wide(), L"job-43.ps");
  EXPECT_STREQ(text.narrow(), "job-43.ps");
  text.formatWide(32, L"%s", L"");
  EXPECT_TRUE(text.isEmpty());
  EXPECT_STREQ(text.wide(), L"");
}

TEST(UtlString, FormatsItsOwnText) {
  UTL_String text(L"job");
  text.formatWide(32, L"%s%s", text.wide(), text.wide());
  EXPECT_STREQ(text.wide(), L"jobjob");
}

TEST(UtlString, FillsAFormatBufferUpToItsTerminatorAndNoFurther) {
  UTL_String text;
  text.formatNarrow(5, "%s", "abcd");
  EXPECT_STREQ(text.narrow(), "abcd");
  text.formatWide(5, L"%s", L"efgh");
  EXPECT_STREQ(text.wide(), L"efgh");
}

TEST(UtlString, ThrowsFailureAndKeepsItsTextWhenAFormatDoesNotFit) {
  UTL_String text(L"before");
  const auto codeOf = [](const auto& call) {
    try {
      call();
    } catch (const UTL_Exception& caught) {
      return caught.code();
    }
    return -1;
  };
  EXPECT_EQ(codeOf([&] { text.formatNarrow(4, "%s", "abcd"); }), 1);
  EXPECT_EQ(codeOf([&] { text.formatWide(4, L"%s", L"abcd"); }), 1);
  EXPECT_EQ(codeOf([&] { text.formatNarrow(0, "x"); }), 1);
  EXPECT_EQ(codeOf([&] { text.formatWide(0, L""); }), 1);
  EXPECT_EQ(codeOf([&] { text.formatWide(8, nullptr); }), 1);
  EXPECT_EQ(codeOf([&] { text.formatWide(static_cast<std::size_t>(-1) / 4, L"x"); }), 3) << "no memory";
  EXPECT_STREQ(text.wide(), L"before");
}
