#include "converter/ghostscript.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

TEST(PrintedPages, NumberFollowsTheLastMarker) {
  EXPECT_EQ(printedPages("noise\nmark-1 9\n\nmark-1 2\n", "mark-1 "), 2);
}

TEST(PrintedPages, MarkerInsideALineDoesNotCount) {
  EXPECT_EQ(printedPages("x mark-1 2\n", "mark-1 "), -1);
}

TEST(PrintedPages, MarkerWithoutANumberDoesNotCount) {
  EXPECT_EQ(printedPages("\nmark-1 \n", "mark-1 "), -1);
}

TEST(PrintedPages, NoMarkerMeansThatTheDocumentDidNotRunToItsEnd) {
  EXPECT_EQ(printedPages("", "mark-1 "), -1);
}

TEST(ErrorLine, IsGhostscriptsOwnLineAboutTheError) {
  EXPECT_EQ(errorLine("hello\nError: /undefined in foo\nOperand stack:\n"), "Error: /undefined in foo");
}

TEST(ErrorLine, IsTheLastLineWhenThereIsNoErrorLine) {
  EXPECT_EQ(errorLine("one\nlast words\n\n"), "last words");
}

TEST(ErrorLine, IsEmptyWhenNothingWasSaid) {
  EXPECT_EQ(errorLine("\n"), "");
}

TEST(ErrorLine, ControlCharactersAreNotRepeated) {
  EXPECT_EQ(errorLine("Error: a\x1b[2J\x07"), "Error: a?[2J?");
}

TEST(PdfWriteRequest, DocumentStandsBetweenTheLockAndTheLastLine) {
  const RunRequest request = pdfWriteRequest(L"gs", L"C:\\a b.ps", "m ");
  EXPECT_EQ(request.program, L"gs");
  EXPECT_EQ(request.input, L"C:\\a b.ps");
  EXPECT_EQ(request.beforeInput.at(1), L"-dSAFER");
  EXPECT_EQ(request.beforeInput.back(), L"-f");
  EXPECT_EQ(request.afterInput.back(),
            L"(\\nm ) print currentpagedevice dup /PageCount known {/PageCount get} {pop 0} ifelse = flush");
}

TEST(FindGhostscript, ConfiguredProgramWins) {
  Limits limits;
  limits.ghostscript = L"/opt/gs";
  EXPECT_EQ(findGhostscript(limits), L"/opt/gs");
}

}  // namespace
}  // namespace mg::converter
