#include "util/utf8_string.h"

#include "tests/support/util/code_of.h"

#include <climits>
#include <gtest/gtest.h>

namespace {

UTF8String fromBytes(const std::string& bytes) {
  return UTF8String(bytes.data(), bytes.size());
}

using tests::codeOf;

}  // namespace

TEST(Utf8String, GoesBothWaysForEveryLengthOfASequence) {
  const std::string bytes = "a\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x96\xA8";
  const UTF8String text = fromBytes(bytes);
  EXPECT_STREQ(text.wide(), L"a\u00e4\u4e2d\U0001F5A8");
  EXPECT_EQ(text.length(), 5U);
  EXPECT_EQ(text.bytes(), bytes);
  EXPECT_EQ(UTF8String(L"a\u00e4").bytes(), "a\xC3\xA4");
}

TEST(Utf8String, IsEmptyForNoBytes) {
  EXPECT_TRUE(UTF8String("", 0).isEmpty());
  EXPECT_EQ(UTF8String().bytes(), "");
}

TEST(Utf8String, RefusesBytesThatAreNotWellFormed) {
  for (const std::string& bytes : {std::string("\xFF"), std::string("\xC3"), std::string("\xC0\xAF"),
                                   std::string("\xED\xA0\x80"), std::string("a\0b", 3)}) {
    EXPECT_EQ(codeOf([&] { fromBytes(bytes); }), 11);
  }
}

TEST(Utf8String, RefusesMoreBytesThanWindowsCanCountWithoutLookingAtThem) {
  EXPECT_EQ(codeOf([] { UTF8String("", std::size_t{INT_MAX} + 1); }), mg::status::kConversion);
}

TEST(Utf8String, RefusesToEncodeAnUnpairedSurrogate) {
  const wchar_t unpaired[] = {L'a', 0xD800, L'b', 0};
  const UTF8String text(unpaired);
  EXPECT_EQ(codeOf([&] { text.bytes(); }), 11);
  EXPECT_STREQ(text.wide(), unpaired);
}

TEST(Utf8String, CanBeCopiedAssignedAndAppendedLikeAnyText) {
  UTF8String text = fromBytes("\xC3\xA4");
  const UTF8String copy(text);
  text.append(L"b");
  EXPECT_EQ(text.bytes(),
            "\xC3\xA4"
            "b");
  EXPECT_EQ(copy.bytes(), "\xC3\xA4");
  text = copy;
  EXPECT_EQ(text.bytes(), "\xC3\xA4");
}
