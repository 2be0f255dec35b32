#include "corvane/wire/link.h"

#include <gtest/gtest.h>
#include <set>

namespace corvane {
namespace {

using Waiting = std::set<std::uint32_t>;

TEST(CorrelationCounter, BeginsWithOne) {
  CorrelationCounter counter;
  EXPECT_EQ(counter.next(Waiting()), 1u);
  EXPECT_EQ(counter.next(Waiting()), 2u);
}

TEST(CorrelationCounter, BeginsAgainAfterTheLargestNumberWithoutZero) {
  CorrelationCounter counter(0xFFFFFFFE);
  EXPECT_EQ(counter.next(Waiting()), 0xFFFFFFFFu);
  EXPECT_EQ(counter.next(Waiting()), 1u);
}

TEST(CorrelationCounter, LeavesOutTheNumbersThatAreWaitedFor) {
  CorrelationCounter counter(0xFFFFFFFD);
  EXPECT_EQ(counter.next(Waiting{0xFFFFFFFE, 0xFFFFFFFF, 1, 2, 4}), 3u);
  EXPECT_EQ(counter.next(Waiting{0xFFFFFFFE, 0xFFFFFFFF, 1, 2, 4}), 5u);
}

}  // namespace
}  // namespace corvane
