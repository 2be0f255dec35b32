#include "converter/host_shell.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

TEST(ShellWord, PlainNamesStayReadable) {
  EXPECT_EQ(shellWord("/tmp/job-17.ps"), "/tmp/job-17.ps");
}

TEST(ShellWord, EmptyTextIsStillAWord) {
  EXPECT_EQ(shellWord(""), "\"$(printf %b '')\"");
}

TEST(ShellWord, EveryCharacterThatMeansSomethingToAShellIsWrittenAsItsOctalNumber) {
  EXPECT_EQ(shellWord("a b"), "\"$(printf %b 'a\\0040b')\"");
  EXPECT_EQ(shellWord("'\"$`;\\%"), "\"$(printf %b '\\0047\\0042\\0044\\0140\\0073\\0134\\0045')\"");
}

TEST(ShellWord, BytesAboveAsciiAreWrittenAsTheirOctalNumbers) {
  EXPECT_EQ(shellWord("\xC3\xA4"), "\"$(printf %b '\\0303\\0244')\"");
}

TEST(ShellCommandLine, QuotesAreEscapedAndLoneBackslashesStay) {
  EXPECT_EQ(shellCommandLine("echo \"a\\0040b\""), L"sh -c \"echo \\\"a\\0040b\\\"\"");
}

TEST(ShellCommandLine, BackslashesBeforeAQuoteAreDoubled) {
  EXPECT_EQ(shellCommandLine("x\\\""), L"sh -c \"x\\\\\\\"\"");
  EXPECT_EQ(shellCommandLine("x\\"), L"sh -c x\\");
}

}  // namespace
}  // namespace mg::converter
