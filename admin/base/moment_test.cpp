#include "admin/base/moment.h"

#include <ctime>
#include <gtest/gtest.h>
#include <stdexcept>

namespace admin {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::system_clock;

system_clock::time_point local(int year, int month, int day, int hour, int minute) {
  std::tm time{};
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  time.tm_mday = day;
  time.tm_hour = hour;
  time.tm_min = minute;
  time.tm_isdst = -1;
  return system_clock::from_time_t(std::mktime(&time));
}

TEST(Moment, OfADayIsItsMidnightHere) {
  const auto now = local(2026, 3, 1, 9, 30);
  EXPECT_EQ(parseMoment("today", now), local(2026, 3, 1, 0, 0));
  EXPECT_EQ(parseMoment("yesterday", now), local(2026, 2, 28, 0, 0));
  EXPECT_EQ(parseMoment("2026-01-31", now), local(2026, 1, 31, 0, 0));
  EXPECT_EQ(parseMoment("2026-01-31 14:05", now), local(2026, 1, 31, 14, 5));
  EXPECT_EQ(parseMoment("now", now), now);
}

TEST(Moment, OfAnAgeLiesThatFarBack) {
  const auto now = local(2026, 3, 1, 9, 30);
  EXPECT_EQ(parseMoment("90m", now), now - minutes(90));
  EXPECT_EQ(parseMoment("2h", now), now - hours(2));
  EXPECT_EQ(parseMoment("3d", now), now - hours(72));
}

TEST(Moment, ThatThereIsNotIsRefusedWithExamples) {
  for (const char* text : {"", "tomorrow", "2h30", "-2h", "2026-02-30", "2026-13-01", "2026-1-31", "2026-01-31 24:00",
                           "2026-01-31 14:60", "2026-01-31T14:30", "2026-01-31 14:30 ", "1000001d", "h"}) {
    try {
      parseMoment(text, system_clock::now());
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& failure) {
      EXPECT_EQ(failure.what(), "\"" + std::string(text) +
                                    "\" is no time; give today, yesterday, an age such as 90m, 2h or 3d, a day such as "
                                    "2026-01-31, or a minute such as \"2026-01-31 14:30\"");
    }
  }
}

}  // namespace
}  // namespace admin
