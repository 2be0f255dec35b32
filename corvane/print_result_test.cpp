#include "corvane/print_result.h"

#include <gtest/gtest.h>

namespace {

TEST(PrintResult, EveryAnswerHasItsWords) {
  EXPECT_STREQ(corvane::printResultText(1), L"The print client has the whole document.");
  EXPECT_STREQ(corvane::printResultText(-1), L"The print client got no data.");
  EXPECT_STREQ(corvane::printResultText(-2), L"The print client could not write the document.");
  EXPECT_STREQ(corvane::printResultText(-3), L"The print client got a PDF without its end.");
  EXPECT_STREQ(corvane::printResultText(-4), L"The print client does not know the job.");
  EXPECT_STREQ(corvane::printResultText(-5), L"The print client got a piece of data that was not as long as it said.");
  EXPECT_STREQ(corvane::printResultText(0), L"The print client did not take the document.");
}

}  // namespace
