#include "server/utc_text.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

TEST(UtcText, IsDateAndTimeOfDayWithoutFractions) {
  EXPECT_EQ(utcText(system_clock::time_point()), L"1970-01-01T00:00:00Z");
  EXPECT_EQ(utcText(system_clock::time_point(seconds(1769903999))), L"2026-01-31T23:59:59Z");
  EXPECT_EQ(utcText(system_clock::time_point(seconds(1769903999)) + milliseconds(999)), L"2026-01-31T23:59:59Z");
  EXPECT_EQ(utcText(system_clock::time_point(seconds(1709208000))), L"2024-02-29T12:00:00Z");
}

}  // namespace
}  // namespace aps
