#include "programs/local_time.h"

#include "corvane/base/local_time.h"

#include <chrono>
#include <gtest/gtest.h>

namespace programs {
namespace {

TEST(LocalTime, IsThatOfTheWireInLocalTimeWithItsOffset) {
  using namespace std::chrono;
  const system_clock::time_point time = sys_days(year(2026) / 7 / 31) + hours(23) + minutes(58) + seconds(59);
  EXPECT_EQ(localTime(L"2026-07-31T23:58:59Z"), corvane::localTimeText(time));
  EXPECT_EQ(localTime(L"2026-07-31T23:58:59Z").size(), std::string("2026-07-31 23:58:59 +0000").size());
}

TEST(LocalTime, WhatIsNoTimeStaysAsItIsOnOneLine) {
  for (const char* text : {"", "soon", "2026-13-01T00:00:00Z", "2026-02-30T00:00:00Z", "2026-01-31T24:00:00Z",
                           "2026-01-31T23:60:00Z", "2026-01-31T23:59:60Z", "2026-01-31 23:59:59Z",
                           "2026-01-31T23:59:59", "2026-01-31T23:59:59ZZ", "20a6-01-31T23:59:59Z"}) {
    EXPECT_EQ(localTime(std::wstring(text, text + std::char_traits<char>::length(text))), text);
  }
  EXPECT_EQ(localTime(L"soon\n\x1b[2J"), "soon ?[2J");
}

}  // namespace
}  // namespace programs
