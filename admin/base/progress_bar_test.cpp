#include "admin/base/output.h"

#include <gtest/gtest.h>
#include <sstream>

namespace admin {
namespace {

TEST(ProgressBar, FillsUpAndSaysHowMuch) {
  EXPECT_EQ(ProgressBar::text(0, 200), "[                                        ]   0 %");
  EXPECT_EQ(ProgressBar::text(100, 200), "[####################                    ]  50 %");
  EXPECT_EQ(ProgressBar::text(200, 200), "[########################################] 100 %");
}

TEST(ProgressBar, OfAnEmptyOrGrowingFileIsFull) {
  EXPECT_EQ(ProgressBar::text(0, 0), "[########################################] 100 %");
  EXPECT_EQ(ProgressBar::text(300, 200), "[########################################] 100 %");
}

TEST(ProgressBar, IsNotDrawnForAMachine) {
  std::ostringstream out;
  Output output(out, out, true);
  { ProgressBar(output).show(1, 2); }
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace admin
