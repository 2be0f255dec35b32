#include "tests/sweeps/job_scenario.h"

#include <gtest/gtest.h>

namespace {

class JobSweep : public testing::Test {
 protected:
  World m_world;
};

constexpr JobScenario::Kind kDirect{L"Laser", 1, 0, "some bytes of a job", "some bytes of a job", false};
constexpr JobScenario::Kind kDirectAlternative{L"Laser", 2, 3, "some bytes of a job", "some bytes of a job", false};
constexpr JobScenario::Kind kConverted{L"Laser", 3, 0, "%!PS-Adobe-3.0\nshowpage\n", JobScenario::kConvertedData,
                                       false};
constexpr JobScenario::Kind kPlainText{L"Preview PDF", 3, 0, "plain text", "", true};
constexpr JobScenario::Kind kReadBack{L"Laser", 3, 0, "neither PostScript", "neither PostScript", false};

TEST_F(JobSweep, ADirectJobSurvivesEveryFailingAllocation) {
  JobScenario scenario(m_world, kDirect);
  EXPECT_GT(sweepAllocations(m_world, scenario), 50);
}

TEST_F(JobSweep, ADirectJobSurvivesEveryFailingCall) {
  JobScenario scenario(m_world, kDirect);
  EXPECT_GT(sweepCalls(m_world, scenario), 40);
}

TEST_F(JobSweep, AJobInTheAlternativeDirectModeSurvivesEveryFailingAllocation) {
  JobScenario scenario(m_world, kDirectAlternative);
  EXPECT_GT(sweepAllocations(m_world, scenario), 50);
}

TEST_F(JobSweep, AConvertedJobSurvivesEveryFailingAllocation) {
  JobScenario scenario(m_world, kConverted);
  EXPECT_GT(sweepAllocations(m_world, scenario), 60);
}

TEST_F(JobSweep, AConvertedJobSurvivesEveryFailingCall) {
  JobScenario scenario(m_world, kConverted);
  EXPECT_GT(sweepCalls(m_world, scenario), 60);
}

TEST_F(JobSweep, AJobThatIsSentAsItWasCollectedSurvivesEveryFailingAllocation) {
  JobScenario scenario(m_world, kReadBack);
  EXPECT_GT(sweepAllocations(m_world, scenario), 60);
}

TEST_F(JobSweep, AJobForNotepadSurvivesEveryFailingAllocation) {
  JobScenario scenario(m_world, kPlainText);
  EXPECT_GT(sweepAllocations(m_world, scenario), 80);
}

TEST_F(JobSweep, AJobForNotepadSurvivesEveryFailingCall) {
  JobScenario scenario(m_world, kPlainText);
  EXPECT_GT(sweepCalls(m_world, scenario), 60);
}

}  // namespace
