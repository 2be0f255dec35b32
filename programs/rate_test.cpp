#include "programs/rate.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace programs {
namespace {

std::string refusalOf(const std::string& text) {
  try {
    parseRate(text);
    return "";
  } catch (const std::invalid_argument& wrong) {
    return wrong.what();
  }
}

TEST(Rate, IsANumberOfBytesWithOrWithoutAUnit) {
  EXPECT_EQ(parseRate("8000"), 8000u);
  EXPECT_EQ(parseRate("250KB"), 250000u);
  EXPECT_EQ(parseRate("250 kb"), 250000u);
  EXPECT_EQ(parseRate("16KiB"), 16384u);
  EXPECT_EQ(parseRate("2MB"), 2000000u);
}

TEST(Rate, OfAnythingElseIsRefusedWithAnExample) {
  EXPECT_EQ(refusalOf("fast"), "\"fast\" is not a rate; an example is 250KB, which are bytes a second");
  EXPECT_EQ(refusalOf(""), "\"\" is not a rate; an example is 250KB, which are bytes a second");
  EXPECT_EQ(refusalOf("-5KB"), "\"-5KB\" is not a rate; an example is 250KB, which are bytes a second");
  EXPECT_EQ(refusalOf("250Kbit"), "\"250Kbit\" is not a rate; an example is 250KB, which are bytes a second");
  EXPECT_EQ(refusalOf("7999"), "a rate of 7999 bytes a second is too low; 8000 is the least");
}

}  // namespace
}  // namespace programs
