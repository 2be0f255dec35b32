#include "server/recent_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(RecentLines, GiveTheLatestOnesOldestFirst) {
  RecentLines lines;
  EXPECT_THAT(lines.latest(3), IsEmpty());
  for (const char* line : {"a", "b", "c"})
    lines.add(line);
  EXPECT_THAT(lines.latest(2), ElementsAre("b", "c"));
  EXPECT_THAT(lines.latest(9), ElementsAre("a", "b", "c"));
  EXPECT_THAT(lines.latest(0), IsEmpty());
}

TEST(RecentLines, KeepSoManyAndNoMore) {
  RecentLines lines;
  for (std::size_t i = 0; i <= RecentLines::kLines; ++i)
    lines.add(std::to_string(i));
  const auto kept = lines.latest(RecentLines::kLines + 1);
  ASSERT_THAT(kept, SizeIs(RecentLines::kLines));
  EXPECT_EQ(kept.front(), "1");
}

TEST(RecentLines, CutALongLineAndStayWithinTheirBytes) {
  RecentLines lines;
  for (std::size_t i = 0; i < 100; ++i)
    lines.add(std::string(100000, 'x'));
  const auto kept = lines.latest(RecentLines::kLines);
  ASSERT_THAT(kept, SizeIs(RecentLines::kBytes / RecentLines::kLineBytes));
  EXPECT_EQ(kept.front(), std::string(RecentLines::kLineBytes, 'x'));
}

}  // namespace
}  // namespace aps
