#include "converter/ghostscript.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

TEST(PdfWriteRequest, TheScriptIsRunInsideTheCageAndTheDocumentIsItsInput) {
  const RunRequest request = pdfWriteRequest(L"gs", L"run.ps", L"C:\\a b.ps");
  EXPECT_EQ(request.program, L"gs");
  EXPECT_EQ(request.input, L"C:\\a b.ps");
  EXPECT_EQ(request.arguments.at(1), L"-dSAFER");
  EXPECT_EQ(request.arguments.at(8), L"-f");
  EXPECT_EQ(request.arguments.back(), L"run.ps");
}

TEST(FindGhostscript, ConfiguredProgramWins) {
  Limits limits;
  limits.ghostscript = L"/opt/gs";
  EXPECT_EQ(findGhostscript(limits), L"/opt/gs");
}

}  // namespace
}  // namespace mg::converter
