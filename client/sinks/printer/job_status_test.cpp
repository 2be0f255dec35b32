#include "client/sinks/printer/job_status.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

JobStatus status(int state, std::vector<std::string> reasons = {}, std::vector<std::string> printerReasons = {},
                 const std::string& message = "") {
  JobStatus made;
  made.state = state;
  made.reasons = std::move(reasons);
  made.printerReasons = std::move(printerReasons);
  made.message = message;
  return made;
}

TEST(JobStatus, OnlyAnEndOrAQueueThatIsPausedTellsThatAJobIsTaken) {
  for (const bool isQueue : {true, false}) {
    EXPECT_EQ(fateOf(status(JobStatus::kCompleted), isQueue), JobFate::kTaken);
    EXPECT_EQ(fateOf(status(JobStatus::kProcessing), isQueue), JobFate::kWatched);
    EXPECT_EQ(fateOf(status(JobStatus::kPending), isQueue), JobFate::kWatched);
    EXPECT_EQ(fateOf(status(JobStatus::kHeld, {"job-hold-until-specified"}), isQueue), JobFate::kTaken);
    EXPECT_EQ(fateOf(status(JobStatus::kHeld, {"job-incoming"}), isQueue), JobFate::kTroubled);
    EXPECT_EQ(fateOf(status(JobStatus::kHeld, {"none", "job-data-insufficient"}), isQueue), JobFate::kTroubled);
    EXPECT_EQ(fateOf(status(JobStatus::kStopped), isQueue), JobFate::kTroubled);
    EXPECT_EQ(fateOf(status(JobStatus::kCanceled), isQueue), JobFate::kGivenUp);
    EXPECT_EQ(fateOf(status(JobStatus::kAborted), isQueue), JobFate::kGivenUp);
    EXPECT_EQ(fateOf(status(0), isQueue), JobFate::kTroubled);
    EXPECT_EQ(fateOf(status(17), isQueue), JobFate::kTroubled);
  }
  JobStatus paused = status(JobStatus::kPending);
  paused.isPrinterStopped = true;
  EXPECT_EQ(fateOf(paused, true), JobFate::kTaken);
  EXPECT_EQ(fateOf(paused, false), JobFate::kTroubled);
}

TEST(JobStatus, WhatIsCompletedInNameOnlyIsGivenUp) {
  EXPECT_EQ(fateOf(status(JobStatus::kCompleted, {}, {}, "Unable to add document to print job."), true),
            JobFate::kGivenUp);
  EXPECT_EQ(fateOf(status(JobStatus::kCompleted, {"aborted-by-system"}), true), JobFate::kGivenUp);
  EXPECT_EQ(fateOf(status(JobStatus::kCompleted, {}, {}, "Idle."), true), JobFate::kTaken);
}

TEST(JobStatus, TroubleIsWhatKeepsThePrinterFromPrintingByItsSeverity) {
  const auto fate = [](const std::string& reason) {
    return fateOf(status(JobStatus::kProcessing, {}, {reason}), true);
  };
  for (const char* bad : {"media-empty", "media-empty-error", "media-needed-warning", "offline-report",
                          "door-open-error", "connecting-to-device", "toner-empty"})
    EXPECT_EQ(fate(bad), JobFate::kTroubled) << bad;
  for (const char* well : {"none", "media-empty-warning", "media-needed-report", "media-low-warning", "toner-low-error",
                           "door-open-report", "cups-waiting-for-job-completed", ""})
    EXPECT_EQ(fate(well), JobFate::kWatched) << well;
  EXPECT_EQ(fateOf(status(JobStatus::kProcessing, {}, {}, "The printer is not responding."), true), JobFate::kTroubled);
  EXPECT_EQ(fateOf(status(JobStatus::kPending, {}, {"media-empty-error"}), false), JobFate::kTroubled);
  EXPECT_EQ(fateOf(status(JobStatus::kPending, {}, {"media-empty-error"}), true), JobFate::kWatched);
}

void expectTrouble(const JobStatus& of, const std::string& cause, const std::string& remedy) {
  const Trouble trouble = troubleOf(of);
  EXPECT_EQ(trouble.cause, cause);
  EXPECT_EQ(trouble.remedy, remedy);
}

TEST(JobStatus, TroubleIsSaidInAPersonsWordsWithThePrintersOwnBehind) {
  expectTrouble(status(JobStatus::kProcessing, {}, {"none", "media-jam-error"}, "Jam in tray 2. "),
                "has a paper jam (\"Jam in tray 2\")", "take the stuck paper out, and print again");
  expectTrouble(status(JobStatus::kAborted, {"job-printing", "document-format-error"}, {"media-empty-error"}),
                "cannot read the document", "print it again, and when that fails too, in another format");
  expectTrouble(status(JobStatus::kAborted, {"some-new\nreason", "x"}), "gave the job up, reason some-new reason x",
                "see what it shows and what its log says, and print again");
  expectTrouble(status(JobStatus::kCanceled), "canceled the job",
                "see what it shows and what its log says, and print again");
  expectTrouble(status(JobStatus::kStopped, {"none"}), "stopped in the middle of the job",
                "see what it shows and what its log says, and print again");
  expectTrouble(status(JobStatus::kProcessing, {}, {}, "The printer is not responding."),
                "cannot be reached (\"The printer is not responding\")",
                "see that it is switched on and connected, and print again");
  JobStatus stopped = status(JobStatus::kPending);
  stopped.isPrinterStopped = true;
  stopped.printerMessage = "Paused";
  expectTrouble(stopped, "is stopped (\"Paused\")", "see what it shows and what its log says, and print again");
}

TEST(JobProgress, FollowsFromWhatThePrinterSaysOfTheJobAndOfItself) {
  using protocol::PaperState;
  const auto is = [](const JobStatus& of, const JobProgress& expected) {
    const JobProgress progress = progressOf(of);
    EXPECT_EQ(static_cast<int>(progress.state), static_cast<int>(expected.state));
    EXPECT_EQ(progress.cause, expected.cause);
    EXPECT_EQ(progress.remedy, expected.remedy);
  };
  is(status(JobStatus::kPending), {PaperState::kWaiting, "", ""});
  is(status(JobStatus::kHeld, {"job-hold-until-specified"}), {PaperState::kWaiting, "", ""});
  is(status(JobStatus::kProcessing, {"job-printing"}), {PaperState::kPrinting, "", ""});
  is(status(JobStatus::kCompleted), {PaperState::kPrinted, "", ""});
  is(status(JobStatus::kProcessing, {"job-printing"}, {"media-empty-error"}),
     {PaperState::kStopped, "has no paper", "put paper in"});
  is(status(JobStatus::kStopped, {"printer-stopped"}),
     {PaperState::kStopped, "stopped in the middle of the job, reason printer-stopped",
      "see what it shows and what its log says"});
  is(status(JobStatus::kProcessing, {}, {}, "The printer is not responding."),
     {PaperState::kStopped, "cannot be reached (\"The printer is not responding\")",
      "see that it is switched on and connected"});
  JobStatus paused = status(JobStatus::kPending);
  paused.isPrinterStopped = true;
  paused.printerMessage = "out for lunch";
  is(paused, {PaperState::kStopped, "is stopped (\"out for lunch\")", "see what it shows and what its log says"});
  is(status(JobStatus::kCanceled, {"job-canceled-by-user"}),
     {PaperState::kCanceled, "was told to cancel the job", "print again if it is still wanted"});
  is(status(JobStatus::kAborted, {"document-format-error"}),
     {PaperState::kAborted, "cannot read the document", "print it again, and when that fails too, in another format"});
  is(status(JobStatus::kCompleted, {}, {}, "Print job was not accepted."),
     {PaperState::kAborted, "gave the job up (\"Print job was not accepted\")",
      "see what it shows and what its log says, and print again"});
}

}  // namespace
}  // namespace printclient
