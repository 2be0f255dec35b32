#include "server/log_lines.h"

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

TEST(RecentLines, RefusalsTakeNoRoomFromTheHistory) {
  RecentLines lines;
  lines.add("a job");
  for (int i = 0; i < 100000; ++i)
    lines.add(std::to_string(i), RecentLines::Shelf::kRefusals);
  lines.add("another job");
  const auto kept = lines.latest(1000);
  ASSERT_THAT(kept, SizeIs(RecentLines::kLines + 2));
  EXPECT_EQ(kept.front(), "a job");
  EXPECT_EQ(kept[1], "99750");
  EXPECT_EQ(kept.back(), "another job");
}

TEST(RecentLines, OfFewPlacesTheHistoryHasHalfAndEachWhatTheOtherLeavesFree) {
  constexpr auto kRefusals = RecentLines::Shelf::kRefusals;
  RecentLines lines;
  for (const char* line : {"a", "b"})
    lines.add(line);
  for (const char* line : {"x", "y", "z"})
    lines.add(line, kRefusals);
  EXPECT_THAT(lines.latest(1), ElementsAre("b"));
  EXPECT_THAT(lines.latest(2), ElementsAre("b", "z"));
  EXPECT_THAT(lines.latest(3), ElementsAre("a", "b", "z"));
  EXPECT_THAT(lines.latest(4), ElementsAre("a", "b", "y", "z"));
  lines.add("c");
  lines.add("d");
  EXPECT_THAT(lines.latest(4), ElementsAre("y", "z", "c", "d"));
  EXPECT_THAT(lines.latest(6), ElementsAre("b", "x", "y", "z", "c", "d"));
  RecentLines refused;
  refused.add("a");
  for (const char* line : {"v", "w", "x", "y", "z"})
    refused.add(line, kRefusals);
  EXPECT_THAT(refused.latest(5), ElementsAre("a", "w", "x", "y", "z"));
  EXPECT_THAT(refused.latest(6), ElementsAre("a", "v", "w", "x", "y", "z"));
}

}  // namespace
}  // namespace aps
