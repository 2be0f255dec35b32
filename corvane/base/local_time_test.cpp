#include "corvane/base/text.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <time.h>

namespace corvane {
namespace {

using std::chrono::system_clock;

// 2026-07-01 10:30:05.123 UTC.
const system_clock::time_point kSummer = std::chrono::sys_days(std::chrono::year(2026) / 7 / 1) +
                                         std::chrono::hours(10) + std::chrono::minutes(30) +
                                         std::chrono::milliseconds(5123);

// The time zone of the process, for one test.
class Zone {
 public:
  explicit Zone(const char* name) { set(name); }
  ~Zone() { set("UTC0"); }

 private:
  static void set(const char* name) {
#ifdef _WIN32
    _putenv_s("TZ", name);
    _tzset();
#else
    setenv("TZ", name, 1);
    tzset();
#endif
  }
};

std::string written(system_clock::time_point time) {
  char text[64];
  return std::string(text, writeLocalTime(text, sizeof text, time));
}

TEST(LocalTime, HasItsOffsetEastOfGreenwich) {
  const Zone zone("TST-5:30");
  EXPECT_EQ(written(kSummer), "2026-07-01 16:00:05.123 +0530");
  EXPECT_EQ(localTimeText(kSummer), "2026-07-01 16:00:05 +0530");
}

TEST(LocalTime, HasItsOffsetWestOfGreenwichAndOnTheDayBefore) {
  const Zone zone("TST12");
  EXPECT_EQ(written(kSummer), "2026-06-30 22:30:05.123 -1200");
}

TEST(LocalTime, IsUtcWithAnOffsetOfNothing) {
  const Zone zone("UTC0");
  EXPECT_EQ(written(kSummer), "2026-07-01 10:30:05.123 +0000");
}

#ifndef _WIN32
TEST(LocalTime, FollowsTheChangeOfTheClocks) {
  const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(localTimeText(kSummer), "2026-07-01 12:30:05 +0200");
  EXPECT_EQ(localTimeText(kSummer - std::chrono::days(180)), "2026-01-02 11:30:05 +0100");
}
#endif

TEST(LocalTime, IsCutWhereTheBufferEnds) {
  const Zone zone("UTC0");
  char text[11] = {};
  EXPECT_EQ(writeLocalTime(text, sizeof text, kSummer), 10u);
  EXPECT_STREQ(text, "2026-07-01");
  EXPECT_EQ(writeLocalTime(text, 0, kSummer), 0u);
}

}  // namespace
}  // namespace corvane
