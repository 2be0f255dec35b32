#include "converter/document_program.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

using Ending = RunReport::Ending;

TEST(RunReport, TheLastLineWithTheMarkerCounts) {
  const RunReport report = readReport("noise\nmark-1 9 error 0 silent x in y\n\nmark-1 2 end 0 silent \n", "mark-1 ");
  EXPECT_EQ(report.ending, Ending::kEndOfDocument);
  EXPECT_EQ(report.pages, 2);
  EXPECT_FALSE(report.hasRest || report.hasFurtherPage || report.isReported);
  EXPECT_EQ(report.error, "");
}

TEST(RunReport, EachWordIsRead) {
  RunReport report = readReport("\nm 8 quit 2 reported undefined in foo\r\nmore\n", "m ");
  EXPECT_EQ(report.ending, Ending::kQuit);
  EXPECT_TRUE(report.hasRest && report.hasFurtherPage && report.isReported);
  EXPECT_EQ(report.error, "undefined in foo");
  report = readReport("\nm 0 stop 1 silent ", "m ");
  EXPECT_EQ(report.ending, Ending::kStop);
  EXPECT_TRUE(report.hasRest);
  EXPECT_FALSE(report.hasFurtherPage || report.isReported);
  EXPECT_EQ(readReport("\nm 3 error 0 silent VMerror", "m ").ending, Ending::kError);
}

TEST(RunReport, WhatGhostscriptCannotNameIsLeftOut) {
  EXPECT_EQ(readReport("\nm 1 error 0 silent syntaxerror in ----nostringval----\n", "m ").error, "syntaxerror");
}

TEST(RunReport, WithoutTheMarkerAtTheBeginOfALineThereIsNone) {
  for (const char* said : {"", "x m 2 end 0 silent \n", "\nm two end 0 silent \n", "\nm \n", "\nm 2 sleep 0 silent "})
    EXPECT_EQ(readReport(said, "m ").ending, Ending::kUnknown) << said;
}

TEST(LastWords, AreTheLast64KilobytesOfWhatWasSaid) {
  const TemporaryFolder folder;
  const std::wstring path = folder.file(L"said.txt");
  EXPECT_EQ(readLastWords(path), "");
  const std::string last = "b" + std::string(65534, 'c') + "d";
  TemporaryFolder::write(path, "a" + last);
  EXPECT_EQ(readLastWords(path), last);
  TemporaryFolder::write(path, "short");
  EXPECT_EQ(readLastWords(path), "short");
}

TEST(ErrorLine, IsGhostscriptsOwnLineAboutTheError) {
  EXPECT_EQ(errorLine("hello\nError: /undefined in foo\nOperand stack:\nError: /later in bar\n"),
            "Error: /undefined in foo");
}

TEST(ErrorLine, IsTheLastLineWhenThereIsNoErrorLine) {
  EXPECT_EQ(errorLine("one\nlast words\n\n"), "last words");
  EXPECT_EQ(errorLine("last words"), "last words");
}

TEST(ErrorLine, IsEmptyWhenNothingWasSaid) {
  EXPECT_EQ(errorLine("\n"), "");
}

TEST(ErrorLine, ControlCharactersAreNotRepeatedAndALongLineIsCut) {
  EXPECT_EQ(errorLine("Error: a\x1b[2J\x07"), "Error: a?[2J?");
  EXPECT_EQ(errorLine("Error: " + std::string(1000, 'a')), "Error: " + std::string(193, 'a'));
}

}  // namespace
}  // namespace mg::converter
