#include "client/job_follower.h"

#include "corvane/base/text.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>

namespace printclient {
namespace {

using protocol::PaperState;
using ::testing::ElementsAre;

// What the printers of a test say: for each number what is said next, the last for ever. Any thread.
class World {
 public:
  void says(int number, std::vector<JobProgress> progress) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_says[number] = std::move(progress);
  }
  void isSilent(const std::string& queue) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_silent = queue;
  }
  void open(const std::string& queue) {
    const std::lock_guard<std::mutex> guard(m_lock);
    ++m_opened[queue];
    if (queue == m_silent) throw std::runtime_error("nobody answers");
  }
  JobProgress look(int number) {
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<JobProgress>& next = m_says[number];
    if (next.empty()) throw std::runtime_error("nobody knows");
    const JobProgress progress = next.front();
    if (next.size() > 1) next.erase(next.begin());
    return progress;
  }
  void cancel(int number) {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_refusesToCancel) throw std::runtime_error("not allowed");
    m_says[number] = {{PaperState::kCanceled, "", ""}};
  }
  void refusesToCancel() { m_refusesToCancel = true; }
  int opened(const std::string& queue) {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_opened[queue];
  }

 private:
  std::mutex m_lock;
  std::map<int, std::vector<JobProgress>> m_says;
  std::map<std::string, int> m_opened;
  std::string m_silent;
  std::atomic<bool> m_refusesToCancel{false};
};
World* g_world = nullptr;

class FakeQueue : public PrinterQueue {
 public:
  JobProgress look(const QueuedJob& job) override { return g_world->look(job.numbers.front()); }
  void cancel(QueuedJob& job) override { g_world->cancel(job.numbers.front()); }
};
std::unique_ptr<PrinterQueue> openFake(const PrinterTarget& printer, const std::atomic<bool>&) {
  g_world->open(printer.queue);
  return std::make_unique<FakeQueue>();
}

class JobFollowerTest : public ::testing::Test {
 protected:
  JobFollowerTest() {
    g_world = &m_world;
    m_pace = JobFollower::Pace().faster(500);
    m_pace.newsPerSecond = m_pace.newsAtOnce = 1000000;
  }
  void start() {
    m_follower.emplace(
        [this](const FollowedJob& job, const JobProgress& progress, bool isFirst) {
          const std::lock_guard<std::mutex> guard(m_lock);
          std::string line = fmt::format("{}{} {}", isFirst ? "" : "then ", corvane::toUtf8(job.name),
                                         static_cast<int>(progress.state));
          if (!progress.cause.empty()) line += " " + progress.cause;
          m_news.push_back(line);
          m_changed.notify_all();
        },
        m_pace, openFake);
    m_follower->onCancelFailure([this](std::uint64_t listed, const std::string& why) {
      const std::lock_guard<std::mutex> guard(m_lock);
      m_news.push_back(fmt::format("{} {}", listed, why));
      m_changed.notify_all();
    });
  }
  void follow(int number, const std::string& queue = "desk", std::chrono::hours ago = std::chrono::hours(0)) {
    const auto queued = std::make_shared<QueuedJob>(QueuedJob{
        {queue, ""}, {number}, "title", "me", JobFollower::Clock::now() - ago, {PaperState::kWaiting, "", ""}});
    m_follower->follow({{}, std::to_wstring(number), L"Desk", L"letter"}, {"", true, queued});
  }
  // With a number on the board.
  void followListed(int number, std::uint64_t listed) {
    const auto queued = std::make_shared<QueuedJob>(
        QueuedJob{{"desk", ""}, {number}, "title", "me", JobFollower::Clock::now(), {PaperState::kWaiting, "", ""}});
    m_follower->follow({{}, std::to_wstring(number), L"Desk", L"letter", listed}, {"", true, queued});
  }
  // All news once there are so many.
  std::vector<std::string> news(std::size_t count) {
    std::unique_lock<std::mutex> guard(m_lock);
    EXPECT_TRUE(m_changed.wait_for(guard, std::chrono::minutes(1), [&] { return m_news.size() >= count; }));
    return m_news;
  }

  World m_world;
  JobFollower::Pace m_pace;
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::vector<std::string> m_news;
  std::optional<JobFollower> m_follower;
};

TEST_F(JobFollowerTest, TellsEachChangeOnceUntilTheJobHasItsEnd) {
  const JobProgress printing{PaperState::kPrinting, "", ""};
  m_world.says(7, {{PaperState::kWaiting, "", ""},
                   printing,
                   printing,
                   {PaperState::kStopped, "has no paper", "put paper in"},
                   {PaperState::kStopped, "is open", "close it"},
                   printing,
                   {PaperState::kPrinted, "", ""}});
  start();
  follow(7);
  EXPECT_THAT(news(6),
              ElementsAre("7 1", "then 7 2", "then 7 3 has no paper", "then 7 3 is open", "then 7 2", "then 7 6"));
}

TEST_F(JobFollowerTest, AJobThatIsOverAlreadyIsToldOnceAndOneThatGoesToNoPaperAsWhatItIs) {
  start();
  m_follower->follow({{}, L"p", L"Desk", L""}, {"", true, nullptr});
  m_follower->follow({{}, L"h", L"Desk", L""}, {"", false, nullptr});
  EXPECT_THAT(news(2), ElementsAre("p 6", "h 7"));
  EXPECT_EQ(m_world.opened("desk"), 0);
}

TEST_F(JobFollowerTest, APrinterThatNeverSaysAnythingHoldsUpNoOther) {
  m_world.isSilent("gone");
  start();
  follow(1, "gone");
  m_world.says(2, {{PaperState::kPrinted, "", ""}});
  follow(2, "desk");
  const auto told = news(3);
  EXPECT_THAT(told, ElementsAre("1 1", "2 1", "then 2 6"));
}

TEST_F(JobFollowerTest, AJobThatCannotBeAskedForHoldsUpNoOtherOfItsPrinter) {
  m_world.says(2, {{PaperState::kCanceled, "was told to cancel the job", ""}});
  start();
  follow(1);
  follow(2);
  EXPECT_EQ(news(3).back(), "then 2 4 was told to cancel the job");
}

TEST_F(JobFollowerTest, TheBoundOfJobsIsSaidOfTheOneThatIsNotFollowed) {
  m_pace.most = 2;
  m_world.says(1, {{PaperState::kWaiting, "", ""}});
  m_world.says(2, {{PaperState::kWaiting, "", ""}});
  start();
  follow(1);
  news(1);
  follow(2);
  news(2);
  follow(3);
  EXPECT_THAT(news(4), ElementsAre("1 1", "2 1", "3 1", "then 3 8 is followed for 2 jobs already, which is the limit"));
}

TEST_F(JobFollowerTest, ADayIsTheLongestThatAJobIsFollowed) {
  m_world.says(1, {{PaperState::kWaiting, "", ""}});
  start();
  follow(1, "desk", std::chrono::hours(24));
  EXPECT_THAT(news(2), ElementsAre("1 1", "then 1 8 still had it after a day"));
}

TEST_F(JobFollowerTest, WhatNobodyMissesIsLeftOutWhenThereIsTooMuchNewsAndNothingElse) {
  m_pace.newsAtOnce = 1;
  m_pace.newsPerSecond = 20;
  start();
  m_follower->follow({{}, L"p", L"Desk", L""}, {"", true, nullptr});
  for (int i = 0; i < 100; ++i)
    m_follower->follow({{}, L"h", L"Desk", L""}, {"", false, nullptr});
  m_follower->follow({{}, L"q", L"Desk", L""}, {"", true, nullptr});
  const auto told = news(2);
  EXPECT_EQ(told.front(), "p 6");
  std::unique_lock<std::mutex> guard(m_lock);
  ASSERT_TRUE(m_changed.wait_for(guard, std::chrono::minutes(1), [&] { return m_news.back() == "q 6"; }));
  EXPECT_LT(m_news.size(), 50u);
}

TEST_F(JobFollowerTest, EndsAtOnceThoughItStillFollows) {
  m_world.says(1, {{PaperState::kWaiting, "", ""}});
  m_pace.first = m_pace.longest = std::chrono::hours(1);
  start();
  follow(1);
  news(1);
  m_follower.reset();
}

TEST_F(JobFollowerTest, AJobThatIsNotWantedIsEndedAtItsPrinter) {
  m_world.says(1, {{PaperState::kPrinting, "", ""}});
  m_world.says(2, {{PaperState::kWaiting, "", ""}});
  m_pace.first = m_pace.longest = std::chrono::hours(1);  // nothing is looked at for any other reason
  start();
  followListed(1, 11);
  followListed(2, 12);
  EXPECT_THAT(news(2), ElementsAre("1 1", "2 1"));
  m_follower->cancel(12);
  EXPECT_THAT(news(3), ElementsAre("1 1", "2 1", "then 2 4"));
}

TEST_F(JobFollowerTest, AJobThatIsCanceledBeforeItComesIsEndedWhenItDoes) {
  m_world.says(1, {{PaperState::kPrinting, "", ""}});
  m_pace.first = m_pace.longest = std::chrono::hours(1);
  start();
  m_follower->cancel(11);
  followListed(1, 11);
  EXPECT_THAT(news(2), ElementsAre("1 1", "then 1 4"));
}

TEST_F(JobFollowerTest, APrinterThatDoesNotLetGoOfAJobIsSaidAndTheJobIsFollowedOn) {
  m_world.says(1, {{PaperState::kWaiting, "", ""}});
  m_world.refusesToCancel();
  start();
  followListed(1, 11);
  EXPECT_THAT(news(1), ElementsAre("1 1"));
  m_follower->cancel(11);
  EXPECT_THAT(news(2), ElementsAre("1 1", "11 not allowed"));
  m_world.says(1, {{PaperState::kPrinted, "", ""}});
  EXPECT_THAT(news(3), ElementsAre("1 1", "11 not allowed", "then 1 6"));
}

}  // namespace
}  // namespace printclient
