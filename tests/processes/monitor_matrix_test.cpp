// Each process that a job goes through is killed, and stopped, at each of eight stages of the job's life: every call
// returns, nothing is said to be printed that is not there whole, nobody is left without a word about a job that did
// not arrive, nothing is left behind, and the next job prints.
//
// Ten rounds of eight jobs for each process and signal in the long form, 800 jobs together, and one round each of
// processes that stay stopped; in the short form one round each of killed processes.

#include "tests/processes/job_round.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <thread>

namespace tests {
namespace {

using ::testing::AnyOf;

// Long enough for every bound on the way but the one of the end's answer, which is ten minutes.
constexpr int kReturnSeconds = 150;
constexpr int kEndAnswerSeconds = 660;

bool isLong() {
  return std::getenv("MG_LONG_TESTS") != nullptr;
}

int rounds() {
  const char* const number = std::getenv("MG_MATRIX_ROUNDS");
  return number != nullptr ? std::atoi(number) : isLong() ? 10 : 1;
}

// What every round must show, whatever was done to whom.
void expectHonestEnds(JobRound& round, int number) {
  for (int stage = 1; stage <= kStages; ++stage) {
    const std::string arrived = round.arrived(stage);
    EXPECT_THAT(arrived, AnyOf("nothing", "the document")) << "stage " << stage << ", round " << number;
    EXPECT_EQ(round.queueActions(stage), round.owedQueueActions(stage)) << "stage " << stage << ", round " << number;
    if (!round.hasHost(stage)) continue;
    if (round.isPrinted(stage)) {
      EXPECT_EQ(arrived, "the document") << "stage " << stage << ", round " << number;
    } else {
      EXPECT_NE(round.failureOf(stage), "") << "stage " << stage << ", round " << number;
    }
    std::printf("matrix: stage %d: %s, arrived: %s\n", stage, round.isPrinted(stage) ? "printed" : "failed",
                arrived.c_str());
  }
}

struct Case {
  Part part;
  const char* name;
  int firstFailing;  // from this stage on a job whose process is killed has failed
  std::unique_ptr<JobDesk> (*makeDesk)();
};

class MonitorMatrix : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override { MG_SKIP_WITHOUT_WINDOWS_PROGRAMS(); }
};

TEST_P(MonitorMatrix, AKilledProcessLosesNoJobInSilence) {
  for (int number = 1; number <= rounds(); ++number) {
    JobRound round(GetParam().part, number, GetParam().makeDesk());
    ASSERT_NO_FATAL_FAILURE(round.begin());
    ASSERT_NO_FATAL_FAILURE(round.signal(SIGKILL));
    round.restart();
    round.letGo();
    round.awaitHosts(kReturnSeconds);
    expectHonestEnds(round, number);
    for (int stage = 1; stage <= kStages; ++stage) {
      if (!round.hasHost(stage)) {
        // Nothing had reached the server at the first stage.
        if (stage > 1) {
          EXPECT_TRUE(round.isKnown(stage)) << "stage " << stage;
        }
      } else {
        EXPECT_EQ(round.isPrinted(stage), stage < GetParam().firstFailing) << "stage " << stage << "\n"
                                                                           << round.failureOf(stage);
      }
    }
    // What a killed spooler has left of its jobs goes with the next start of the monitor.
    if (GetParam().part == Part::kHost) round.age();
    round.expectNextJobPrints();
    round.expectNothingLeft();
    if (HasFailure()) break;
  }
}

TEST_P(MonitorMatrix, AStoppedProcessThatGoesOnLosesNothing) {
  if (!isLong()) GTEST_SKIP() << "in scripts/test-long";
  for (int number = 1; number <= rounds(); ++number) {
    JobRound round(GetParam().part, number, GetParam().makeDesk());
    ASSERT_NO_FATAL_FAILURE(round.begin());
    ASSERT_NO_FATAL_FAILURE(round.signal(SIGSTOP));
    round.letGo();
    // Long enough for everybody else to come to where they wait.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    round.goOn();
    round.awaitHosts(kReturnSeconds);
    expectHonestEnds(round, number);
    for (int stage = 1; stage <= kStages; ++stage)
      EXPECT_TRUE(round.isPrinted(stage)) << "stage " << stage << ", round " << number << "\n"
                                          << round.failureOf(stage);
    round.expectNextJobPrints();
    round.expectNothingLeft();
    if (HasFailure()) break;
  }
}

TEST_P(MonitorMatrix, AProcessThatStaysStoppedEndsEveryCallWithItsBound) {
  if (!isLong()) GTEST_SKIP() << "in scripts/test-long";
  const Part part = GetParam().part;
  if (part == Part::kHost) GTEST_SKIP() << "nobody waits for a stopped spooler";
  if (part == Part::kConverter) GTEST_SKIP() << "the monitor waits for its converter as long as it lives";
  JobRound round(part, 1, GetParam().makeDesk());
  ASSERT_NO_FATAL_FAILURE(round.begin());
  ASSERT_NO_FATAL_FAILURE(round.signal(SIGSTOP));
  round.letGo();
  // A document that has not been started waits for the server.
  const int firstEnding = part == Part::kServer ? 2 : 1;
  const auto begin = std::chrono::steady_clock::now();
  round.awaitHosts(kEndAnswerSeconds, firstEnding);
  const auto time = std::chrono::steady_clock::now() - begin;
  std::printf("matrix: every call has returned after %lld s\n", static_cast<long long>(time / std::chrono::seconds(1)));
  round.goOn();
  round.awaitHosts(kReturnSeconds);
  expectHonestEnds(round, 1);
  for (int stage = 1; stage <= kStages; ++stage)
    EXPECT_EQ(round.isPrinted(stage), stage < firstEnding) << "stage " << stage;
  round.expectNextJobPrints();
  round.expectNothingLeft();
}

std::ostream& operator<<(std::ostream& out, const Case& one) {
  return out << one.name;
}

std::string nameOf(const ::testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Of, MonitorMatrix,
                         ::testing::Values(Case{Part::kHost, "Host", 1, makeFolderDesk},
                                           Case{Part::kServer, "Server", 2, makeFolderDesk},
                                           Case{Part::kClient, "Client", 2, makeFolderDesk},
                                           Case{Part::kConverter, "Converter", 1, makeFolderDesk},
                                           Case{Part::kGhostscript, "Ghostscript", 1, makeFolderDesk}),
                         nameOf);

// The same, over TLS to printers. A printer that was killed and is back has lost the job that it had made.
INSTANTIATE_TEST_SUITE_P(OnTheWayToPaperOf, MonitorMatrix,
                         ::testing::Values(Case{Part::kHost, "Host", 1, makePaperDesk},
                                           Case{Part::kServer, "Server", 2, makePaperDesk},
                                           Case{Part::kClient, "Client", 2, makePaperDesk},
                                           Case{Part::kPrinter, "Printer", 8, makePaperDesk},
                                           Case{Part::kConverter, "Converter", 1, makePaperDesk},
                                           Case{Part::kGhostscript, "Ghostscript", 1, makePaperDesk}),
                         nameOf);

}  // namespace
}  // namespace tests
