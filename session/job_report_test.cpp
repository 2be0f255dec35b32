#include "session/job_report.h"

#include "corvane/records/messages.h"
#include "tests/support/failing_new.h"
#include "tests/support/local_log.h"
#include "tests/support/recording_monitor.h"
#include "tests/support/trail_lines.h"

#include <windows.h>

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <string>

namespace {

TEST(JobReport, TheFirstCauseCounts) {
  JobReport report;
  EXPECT_FALSE(report.hasFailed());
  EXPECT_STREQ(report.cause(), L"");
  SetLastError(42);
  report.fail(JobFault::kAttach, L"%s has %d", L"Laser", 3);
  report.fail(JobFault::kConnection, L"later");
  EXPECT_EQ(GetLastError(), 42u);
  EXPECT_TRUE(report.hasFailed());
  EXPECT_EQ(report.fault(), JobFault::kAttach);
  EXPECT_STREQ(report.cause(), L"Laser has 3");
}

TEST(JobReport, ARecordsTextIsACauseAndTheStepItsFault) {
  const RecordingScope records;
  JobReport report;
  report.begin(JobFault::kServer);
  report.fail(CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory,
                                                                 L"Failed to connect to APS."));
  EXPECT_EQ(report.fault(), JobFault::kServer);
  EXPECT_STREQ(report.cause(), L"Failed to connect to APS.");
}

TEST(JobReport, WhatFailsBeforeTheFirstStepHasAnUnknownFault) {
  const RecordingScope records;
  JobReport report;
  report.fail(CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory, L"no"));
  EXPECT_EQ(report.fault(), JobFault::kUnknown);
  EXPECT_STREQ(report.cause(), L"no");
}

TEST(JobReport, ARecordWithoutATextIsAnUnexpectedException) {
  const RecordingScope records;
  JobReport report;
  report.begin(JobFault::kServer);
  report.fail(CS_ProgramMonitor::getDefaultMonitor());
  EXPECT_EQ(report.fault(), JobFault::kUnknown);
  EXPECT_STREQ(report.cause(), L"An unexpected exception was caught.");
}

TEST(JobReport, NoRecordAtAllIsAnUnexpectedExceptionToo) {
  JobReport report;
  report.begin(JobFault::kServer);
  report.fail(CS_RCPtr<CS_ProgramMonitor>());
  EXPECT_EQ(report.fault(), JobFault::kUnknown);
  EXPECT_STREQ(report.cause(), L"An unexpected exception was caught.");
}

TEST(JobReport, AStepThatBeginsWithATextIsALineToo) {
  const RecordingScope records;
  JobReport report;
  report.begin(JobFault::kStream, L"attached, mode %d", 2);
  report.fail(CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory, L"no"));
  EXPECT_EQ(report.fault(), JobFault::kStream);
  EXPECT_THAT(trailLines(report), testing::ElementsAre("attached, mode 2"));
}

TEST(JobReport, ALongCauseIsCut) {
  JobReport report;
  report.fail(JobFault::kClient, L"%s", std::wstring(1000, L'x').c_str());
  EXPECT_EQ(report.cause(), std::wstring(399, L'x'));
}

TEST(JobReport, EveryFaultHasARemedyOfItsOwn) {
  std::set<std::wstring> remedies;
  for (int fault = 0; fault <= static_cast<int>(JobFault::kPortDeleted); ++fault) {
    const std::wstring remedy = remedyFor(static_cast<JobFault>(fault));
    EXPECT_EQ(remedy.back(), L'.');
    remedies.insert(remedy);
  }
  EXPECT_EQ(remedies.size(), std::size_t{1} + static_cast<int>(JobFault::kPortDeleted));
}

TEST(JobReport, WhatIsNoFaultHasTheRemedyOfAnUnknownOne) {
  EXPECT_STREQ(remedyFor(JobFault::kUnknown), L"See the module's log for what went before, then print again.");
  EXPECT_STREQ(remedyFor(static_cast<JobFault>(99)), remedyFor(JobFault::kUnknown));
}

TEST(JobReport, WritesItsLinesWithTheirTimesUnderTheGivenWord) {
  const LocalLog log;
  JobReport report;
  SetLastError(42);
  report.add(L"the client printer is \"%s\", format %d", L"Laser", 3);
  report.write(L"job 17:");
  EXPECT_EQ(GetLastError(), 42u);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(std::regex_match(log.lines()[0],
                               std::regex(R"(job 17: \d\d:\d\d:\d\d\.\d\d\d the client printer is "Laser", format 3)")))
      << log.lines()[0];
}

TEST(JobReport, ALineHasTheTimeAtWhichItWasAdded) {
  const LocalLog log;
  JobReport report;
  const auto timeOfDay = [] {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    return std::string(text);
  };
  const std::string before = timeOfDay();
  report.add(L"now");
  const std::string after = timeOfDay();
  report.write(L"job:");
  const std::string at = log.lines().at(0).substr(5, before.size());
  if (before <= after) {
    EXPECT_TRUE(before <= at && at <= after) << before << " " << at << " " << after;
  } else {
    EXPECT_TRUE(before <= at || at <= after) << "at midnight: " << before << " " << at << " " << after;
  }
}

TEST(JobReport, KeepsTheLatest24LinesAndCutsALongOneTo159Characters) {
  const LocalLog log;
  JobReport report;
  for (int number = 1; number <= 24; ++number)
    report.add(L"line %d", number);
  report.add(L"%s", std::wstring(1000, L'x').c_str());
  report.write(L"job:");
  ASSERT_EQ(log.lines().size(), 24u);
  EXPECT_TRUE(log.lines().front().ends_with(" line 2")) << log.lines().front();
  EXPECT_TRUE(log.lines().back().ends_with(" " + std::string(159, 'x'))) << log.lines().back();
}

TEST(JobReport, AddingAllocatesNothing) {
  JobReport report;
  const FailingNew failing(1);
  report.add(L"%s %d", L"text", 1);
  EXPECT_FALSE(failing.hasFailed());
}

}  // namespace
