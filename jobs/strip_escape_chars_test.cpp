#include "jobs/conversion.h"
#include "tests/support/local_log.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::string strip(std::string text) {
  const int kept = StripEscapeChars(reinterpret_cast<unsigned char*>(text.data()), static_cast<int>(text.size()));
  return text.substr(0, static_cast<std::size_t>(kept));
}

TEST(StripEscapeChars, RemovesASequenceUpToItsFirstTerminator) {
  EXPECT_EQ(strip("A\x1B(s0PB"), "AB");
  EXPECT_EQ(strip("\x1B"
                  "Ex"),
            "x");
  EXPECT_EQ(strip("\x1B"
                  "abc123Zx"),
            "x");
}

TEST(StripEscapeChars, TheTerminatorsRunFromTheEqualsSignToCapitalZ) {
  EXPECT_EQ(strip("\x1B=x"), "x");
  EXPECT_EQ(strip("\x1BZx"), "x");
  EXPECT_EQ(strip("\x1B<=x"), "x");
  EXPECT_EQ(strip("\x1B[Ax"), "x");
}

TEST(StripEscapeChars, AnEscapeInsideASequenceBelongsToIt) {
  EXPECT_EQ(strip("\x1B\x1B"
                  "Ax"),
            "x");
}

TEST(StripEscapeChars, BytesAreComparedUnsigned) {
  EXPECT_EQ(strip("\x1B\xC1\xFF"
                  "Ax\xE4"),
            "x\xE4");
}

TEST(StripEscapeChars, OtherControlCharactersStay) {
  const std::string text = "a\r\n\f\tb\x04";
  EXPECT_EQ(strip(text), text);
}

TEST(StripEscapeChars, ASequenceWithoutATerminatorEndsWithTheData) {
  EXPECT_EQ(strip("ab\x1B(s0p"), "ab");
  EXPECT_EQ(strip("ab\x1B"), "ab");
}

TEST(StripEscapeChars, TracesItself) {
  LocalLog log;
  log.trace();
  strip("abc");
  EXPECT_EQ(log.entered(), std::vector<std::string>{"StripEscapeChars()"});
}

TEST(StripEscapeChars, NothingStaysNothing) {
  unsigned char byte = 'a';
  EXPECT_EQ(StripEscapeChars(&byte, 0), 0);
  EXPECT_EQ(StripEscapeChars(nullptr, 5), 0);
}

}  // namespace
