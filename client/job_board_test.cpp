#include "client/job_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace printclient {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

BoardJob job(const std::string& title, const std::string& printer = "Laser") {
  BoardJob made;
  made.title = title;
  made.printer = printer;
  return made;
}

std::vector<std::string> titles(const JobBoard::News& news) {
  std::vector<std::string> all;
  for (const BoardJob& one : news.jobs)
    all.push_back(one.title);
  return all;
}

void setStage(JobBoard& board, std::uint64_t number, JobStage stage) {
  board.change(number, [stage](BoardJob& one) { one.stage = stage; });
}

TEST(JobBoardTest, TellsEverythingAtFirstAndThenOnlyWhatIsNewer) {
  JobBoard board;
  const std::uint64_t one = board.add(job("one"));
  const std::uint64_t two = board.add(job("two"));
  board.setPrinters({{"Laser", "folder out", true}});
  board.setServer(0, {"a:1, session 5", "connected", true});
  const JobBoard::News all = board.newerThan(0);
  EXPECT_THAT(titles(all), ElementsAre("two", "one"));
  EXPECT_THAT(*all.order, ElementsAre(two, one));
  EXPECT_EQ(all.printers->at(0).name, "Laser");
  EXPECT_EQ(all.servers->at(0).state, "connected");

  EXPECT_THAT(titles(board.newerThan(all.count)), IsEmpty());
  board.change(one, [](BoardJob& changed) { changed.bytes = 17; });
  const JobBoard::News news = board.newerThan(all.count);
  ASSERT_THAT(titles(news), ElementsAre("one"));
  EXPECT_EQ(news.jobs.front().bytes, 17u);
  EXPECT_FALSE(news.order || news.printers || news.servers);
  EXPECT_THAT(titles(board.newerThan(news.count)), IsEmpty());
}

TEST(JobBoardTest, WhatIsTheSameIsNoNews) {
  JobBoard board;
  board.setPrinters({{"Laser", "", false}});
  board.setServer(0, {"a:1", "away", false});
  const std::uint64_t count = board.newerThan(0).count;
  board.setPrinters({{"Laser", "", false}});
  board.setServer(0, {"a:1", "away", false});
  EXPECT_EQ(board.newerThan(count).count, count);
}

TEST(JobBoardTest, OfTooManyJobsTheOldestThatIsOverGoesAndNoneThatGoesOn) {
  JobBoard board;
  const std::uint64_t live = board.add(job("live"));
  const std::uint64_t over = board.add(job("over"));
  setStage(board, over, JobStage::kPrinted);
  while (board.newerThan(0).order->size() < JobBoard::kMost)
    board.add(job("filler"));
  const std::uint64_t count = board.newerThan(0).count;
  board.add(job("one more"));
  const JobBoard::News news = board.newerThan(count);
  EXPECT_EQ(news.order->size(), JobBoard::kMost);
  EXPECT_EQ(news.order->back(), live);
  EXPECT_FALSE(board.find(over));
  board.add(job("and another"));
  EXPECT_FALSE(board.find(live)) << "there is none that is over";
  setStage(board, live, JobStage::kPrinted);  // it is not there, and nothing happens
  EXPECT_EQ(board.newerThan(0).order->size(), JobBoard::kMost);
}

TEST(JobBoardTest, AJobThatIsOverStaysSoAndLetsGoOfItsRequest) {
  JobBoard board;
  const auto request = std::make_shared<CancelRequest>();
  const std::uint64_t number = board.add(job("one"), request);
  board.change(number, [](BoardJob& one) { one.isCanceling = true; });
  EXPECT_EQ(board.cancelOf(number), request);
  EXPECT_TRUE(board.find(number)->isCanceling);
  setStage(board, number, JobStage::kPrinted);
  EXPECT_FALSE(board.find(number)->isCanceling);
  EXPECT_EQ(board.cancelOf(number), nullptr);
  EXPECT_EQ(request.use_count(), 1);
  setStage(board, number, JobStage::kCanceled);
  EXPECT_EQ(board.find(number)->stage, JobStage::kPrinted);
}

TEST(JobBoardTest, TheServersWordsGoToTheJobThatTheyAreAbout) {
  JobBoard board;
  const std::uint64_t other = board.add(job("letter", "Ink"));
  const std::uint64_t failed = board.add(job("letter"));
  setStage(board, failed, JobStage::kFailed);
  const std::uint64_t coming = board.add(job("letter"));
  BoardJob words = job("letter");
  words.cause = "The conversion failed.";
  words.remedy = "See its log.";
  board.explain(words);
  EXPECT_EQ(board.find(failed)->cause, "The conversion failed.");
  EXPECT_EQ(board.find(failed)->remedy, "See its log.");
  words.cause = "The application was ended.";
  board.explain(words);
  EXPECT_EQ(board.find(coming)->cause, "The application was ended.");
  EXPECT_EQ(board.find(coming)->stage, JobStage::kArriving);
  EXPECT_EQ(board.find(other)->cause, "");
  words.cause = "It never left the server.";
  board.explain(words);
  const JobBoard::News all = board.newerThan(0);
  EXPECT_EQ(all.jobs.size(), 4u);
  EXPECT_EQ(all.jobs.front().stage, JobStage::kFailed);
  EXPECT_EQ(all.jobs.front().cause, "It never left the server.");
}

TEST(JobBoardTest, AJobThatThePersonCanceledNeedsNoWordsOfTheServer) {
  JobBoard board;
  const std::uint64_t number = board.add(job("letter"));
  setStage(board, number, JobStage::kCanceled);
  BoardJob words = job("letter");
  words.cause = "The print client has gone.";
  board.explain(words);
  EXPECT_EQ(board.newerThan(0).jobs.size(), 1u);
  EXPECT_EQ(board.find(number)->cause, "");
}

TEST(JobBoardTest, WatchesHearOfChangesForAsLongAsTheyLive) {
  JobBoard board;
  int all = 0, stages = 0;
  const JobBoard::Watch other(
      board, [&stages] { ++stages; }, JobBoard::Watch::Of::kStages);
  {
    const JobBoard::Watch watch(board, [&all] { ++all; });
    const std::uint64_t number = board.add(job("one"));
    board.change(number, [](BoardJob& one) { one.bytes = 1; });
    setStage(board, number, JobStage::kPrinted);
    board.setPrinters({{"Laser", "", false}});
  }
  EXPECT_EQ(all, 4);
  EXPECT_EQ(stages, 2);
  board.add(job("two"));
  EXPECT_EQ(all, 4);
  EXPECT_EQ(stages, 3);
}

}  // namespace
}  // namespace printclient
