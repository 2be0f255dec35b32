#include "session/job_trail.h"

#include "tests/support/failing_new.h"
#include "tests/support/local_log.h"

#include <gtest/gtest.h>
#include <regex>
#include <string>

namespace {

TEST(JobTrail, WritesItsLinesWithTheirTimesUnderTheGivenWord) {
  const LocalLog log;
  JobTrail trail;
  SetLastError(42);
  trail.add(L"the client printer is \"%s\", format %d", L"Laser", 3);
  trail.write(L"job 17:");
  EXPECT_EQ(GetLastError(), 42u);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(std::regex_match(log.lines()[0],
                               std::regex(R"(job 17: \d\d:\d\d:\d\d\.\d\d\d the client printer is "Laser", format 3)")))
      << log.lines()[0];
}

TEST(JobTrail, KeepsTheLatestLinesAndCutsALongOne) {
  const LocalLog log;
  JobTrail trail;
  for (std::size_t number = 1; number <= JobTrail::kLines; ++number)
    trail.add(L"line %d", static_cast<int>(number));
  trail.add(L"%s", std::wstring(1000, L'x').c_str());
  trail.write(L"job:");
  ASSERT_EQ(log.lines().size(), JobTrail::kLines);
  EXPECT_NE(log.lines().front().find(" line 2"), std::string::npos);
  EXPECT_NE(log.lines().back().find(" " + std::string(JobTrail::kLineSize - 1, 'x')), std::string::npos);
}

TEST(JobTrail, AddingAllocatesNothing) {
  JobTrail trail;
  const FailingNew failing(1);
  trail.add(L"%s %d", L"text", 1);
  EXPECT_FALSE(failing.hasFailed());
}

}  // namespace
