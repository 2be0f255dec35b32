#include "session/job_failure.h"

#include "corvane/records/messages.h"
#include "tests/support/recording_monitor.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

TEST(JobFailure, TheFirstCauseCounts) {
  JobFailure failure;
  EXPECT_FALSE(failure.isNoted());
  EXPECT_STREQ(failure.cause(), L"");
  SetLastError(42);
  failure.note(JobFault::kAttach, L"%s has %d", L"Laser", 3);
  failure.note(JobFault::kConnection, L"later");
  EXPECT_EQ(GetLastError(), 42u);
  EXPECT_TRUE(failure.isNoted());
  EXPECT_EQ(failure.fault(), JobFault::kAttach);
  EXPECT_STREQ(failure.cause(), L"Laser has 3");
}

TEST(JobFailure, ARecordsTextIsACauseAndWhatWasExpectedItsKind) {
  const RecordingScope records;
  JobFailure failure;
  failure.expect(JobFault::kServer);
  failure.note(CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory,
                                                                  L"Failed to connect to APS."));
  EXPECT_EQ(failure.fault(), JobFault::kServer);
  EXPECT_STREQ(failure.cause(), L"Failed to connect to APS.");
}

TEST(JobFailure, ARecordWithoutATextIsAnUnexpectedException) {
  const RecordingScope records;
  JobFailure failure;
  failure.expect(JobFault::kServer);
  failure.note(CS_ProgramMonitor::getDefaultMonitor());
  EXPECT_EQ(failure.fault(), JobFault::kUnknown);
  EXPECT_STREQ(failure.cause(), L"An unexpected exception was caught.");
}

TEST(JobFailure, NoRecordAtAllIsAnUnexpectedExceptionToo) {
  JobFailure failure;
  failure.expect(JobFault::kServer);
  failure.note(CS_RCPtr<CS_ProgramMonitor>());
  EXPECT_EQ(failure.fault(), JobFault::kUnknown);
  EXPECT_STREQ(failure.cause(), L"An unexpected exception was caught.");
}

TEST(JobFailure, ALongCauseIsCut) {
  JobFailure failure;
  failure.note(JobFault::kClient, L"%s", std::wstring(1000, L'x').c_str());
  EXPECT_EQ(failure.cause(), std::wstring(399, L'x'));
}

TEST(JobFailure, EveryFaultHasARemedyOfItsOwn) {
  std::set<std::wstring> remedies;
  for (int fault = 0; fault <= static_cast<int>(JobFault::kPortDeleted); ++fault) {
    const std::wstring remedy = remedyFor(static_cast<JobFault>(fault));
    EXPECT_EQ(remedy.back(), L'.');
    remedies.insert(remedy);
  }
  EXPECT_EQ(remedies.size(), std::size_t{1} + static_cast<int>(JobFault::kPortDeleted));
}

TEST(JobFailure, WhatIsNoFaultHasTheRemedyOfAnUnknownOne) {
  EXPECT_STREQ(remedyFor(JobFault::kUnknown), L"See the module's log for what went before, then print again.");
  EXPECT_STREQ(remedyFor(static_cast<JobFault>(99)), remedyFor(JobFault::kUnknown));
}

}  // namespace
