#include "programs/allowance.h"

#include <gtest/gtest.h>

namespace programs {
namespace {

using std::chrono::milliseconds;

int taken(Allowance& allowance, Allowance::Clock::time_point now) {
  int count = 0;
  while (count < 1000 && allowance.take(now))
    ++count;
  return count;
}

TEST(Allowance, IsSoManyAtOnceAndThenSoManyASecondAndNeverMoreThanAtOnce) {
  Allowance allowance(5, 2);
  const auto begin = Allowance::Clock::now();
  EXPECT_EQ(taken(allowance, begin), 5);
  EXPECT_EQ(taken(allowance, begin + milliseconds(400)), 0);
  EXPECT_EQ(taken(allowance, begin + milliseconds(600)), 1);
  EXPECT_EQ(taken(allowance, begin + milliseconds(1600)), 2);
  EXPECT_EQ(taken(allowance, begin + std::chrono::hours(1)), 5);
}

TEST(Allowance, GrowsByNothingWhenTheTimeThatItIsGivenGoesBack) {
  Allowance allowance(1, 1);
  const auto begin = Allowance::Clock::now();
  EXPECT_TRUE(allowance.take(begin + std::chrono::hours(1)));
  EXPECT_FALSE(allowance.take(begin));
}

}  // namespace
}  // namespace programs
