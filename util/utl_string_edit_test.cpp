#include "util/utl_string.h"

#include <clocale>
#include <gtest/gtest.h>

TEST(UtlStringEdit, ChangesTheCaseOfEitherForm) {
  UTL_String wide(L"Mixed 123 Case");
  wide.toLower();
  EXPECT_STREQ(wide.wide(), L"mixed 123 case");
  EXPECT_STREQ(wide.narrow(), "mixed 123 case");
  wide.toUpper();
  EXPECT_STREQ(wide.narrow(), "MIXED 123 CASE");
  UTL_String narrow = UTL_String::fromNarrow("Mixed \xE4");
  narrow.toUpper();
  EXPECT_STREQ(narrow.narrow(), "MIXED \xE4") << "the C locale changes ASCII letters only";
  narrow.toLower();
  EXPECT_STREQ(narrow.narrow(), "mixed \xE4");
  UTL_String cyrillic(L"Ab\u0416");  // in no ANSI code page of the West
  cyrillic.toLower();
  EXPECT_STREQ(cyrillic.wide(), L"ab\u0416");
  cyrillic.toUpper();
  EXPECT_STREQ(cyrillic.wide(), L"AB\u0416");
  UTL_String empty;
  empty.toLower();
  empty.toUpper();
  EXPECT_TRUE(empty.isEmpty());
}

// A program that the monitor is loaded into may have chosen another locale than the C one.
TEST(UtlStringEdit, ChangesTheCaseOfTheWideFormByTheLocale) {
  UTL_String text(L"\u00e4\u00C4");
  text.toUpper();
  EXPECT_STREQ(text.wide(), L"\u00e4\u00C4");
  ASSERT_NE(std::setlocale(LC_CTYPE, "English_United States.1252"), nullptr);
  text.toUpper();
  EXPECT_STREQ(text.wide(), L"\u00C4\u00C4");
  text.toLower();
  EXPECT_STREQ(text.wide(), L"\u00e4\u00e4");
  std::setlocale(LC_CTYPE, "C");
}

TEST(UtlStringEdit, ReadsTheNumberThatItStartsWith) {
  EXPECT_EQ(UTL_String(L"42").toInteger(), 42);
  EXPECT_EQ(UTL_String(L" -7 copies").toInteger(), -7);
  EXPECT_EQ(UTL_String(L"copies").toInteger(), 0);
  EXPECT_EQ(UTL_String().toInteger(), 0);
}

TEST(UtlStringEdit, FindsTheFirstCharacterOfASet) {
  const UTL_String text(L"a:b/c");
  EXPECT_EQ(text.findAnyOf(L"/:"), text.wide() + 1);
  EXPECT_EQ(text.findAnyOf("c/"), text.narrow() + 3);
  EXPECT_EQ(text.findAnyOf(L"xyz"), nullptr);
  EXPECT_EQ(text.findAnyOf(""), nullptr);
  EXPECT_EQ(UTL_String().findAnyOf(L"a"), nullptr);
}
