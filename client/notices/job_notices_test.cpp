#include "client/notices/job_notices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace printclient {
namespace {

using ::testing::ElementsAre;

class JobNoticesTest : public ::testing::Test {
 protected:
  // Notes what it is to show, and answers with the test's words.
  class NotedDesktop : public Desktop {
   public:
    explicit NotedDesktop(JobNoticesTest& test) : m_test(test) {}
    std::string show(const DesktopNotice& notice) override {
      m_test.note(notice.title + (notice.isUrgent ? "! " : ". ") + notice.text);
      return m_test.m_refusal;
    }

   private:
    JobNoticesTest& m_test;
  };

  void start(std::chrono::milliseconds patience = std::chrono::milliseconds(0)) {
    m_notices.emplace(
        m_board, [this](const std::string& why) { note("no notices: " + why); },
        [this] { return std::make_unique<NotedDesktop>(*this); }, patience);
  }
  std::uint64_t add(const std::string& title, JobStage stage, const std::string& cause = "",
                    const std::string& remedy = "") {
    BoardJob job;
    job.title = title;
    job.printer = "Laser";
    const std::uint64_t number = m_board.add(job);
    set(number, stage, cause, remedy);
    return number;
  }
  void set(std::uint64_t number, JobStage stage, const std::string& cause = "", const std::string& remedy = "") {
    m_board.change(number, [&](BoardJob& job) {
      job.stage = stage;
      job.cause = cause;
      job.remedy = remedy;
    });
  }
  void note(const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_noted.push_back(text);
    m_changed.notify_all();
  }
  std::vector<std::string> noted(std::size_t count) {
    std::unique_lock<std::mutex> guard(m_lock);
    EXPECT_TRUE(m_changed.wait_for(guard, std::chrono::minutes(1), [&] { return m_noted.size() >= count; }));
    return m_noted;
  }

  JobBoard m_board;
  std::string m_refusal;
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::vector<std::string> m_noted;
  std::optional<JobNotices> m_notices;
};

TEST_F(JobNoticesTest, AJobThatFailsIsShownOnceWithItsReasonAndWhatToDo) {
  start();
  add("fine", JobStage::kPrinted);
  const std::uint64_t number = add("Report", JobStage::kFailed, "the disk is full", "make room, and print again");
  noted(1);
  set(number, JobStage::kFailed, "other words");
  add("last", JobStage::kFailed, "it is the end.");
  EXPECT_THAT(noted(2), ElementsAre("\"Report\" was not printed! Laser: The disk is full. Make room, and print again.",
                                    "\"last\" was not printed! Laser: It is the end."));
}

TEST_F(JobNoticesTest, AJobThatWaitsForSomebodyIsShownAndThatItFailedAfterwardsToo) {
  start();
  const std::uint64_t number = add("", JobStage::kStopped, "the printer has no paper", "put paper in");
  EXPECT_THAT(noted(1), ElementsAre("A job waits at the printer. Laser: The printer has no paper. Put paper in."));
  set(number, JobStage::kPrinting);
  set(number, JobStage::kFailed, "the printer has given it up");
  EXPECT_EQ(noted(2).back(), "A job was not printed! Laser: The printer has given it up.");
}

TEST_F(JobNoticesTest, AJobThatThePersonCanceledIsNotShown) {
  start();
  add("canceled", JobStage::kCanceled, "you canceled it");
  add("last", JobStage::kFailed, "it is the end");
  EXPECT_THAT(noted(1), ElementsAre("\"last\" was not printed! Laser: It is the end."));
}

TEST_F(JobNoticesTest, TheServersWordsAreWaitedForAMoment) {
  start(std::chrono::hours(1));
  add("Report", JobStage::kFailed, "no data came", "the server says why");
  BoardJob words;
  words.title = "Report";
  words.printer = "Laser";
  words.cause = "The conversion failed.";
  words.remedy = "Print it again.";
  m_board.explain(words);
  EXPECT_THAT(noted(1), ElementsAre("\"Report\" was not printed! Laser: The conversion failed. Print it again."));
}

TEST_F(JobNoticesTest, ADesktopThatTakesNoneIsSaidOnce) {
  m_refusal = "there is none";
  start();
  add("one", JobStage::kFailed, "why");
  noted(2);
  add("two", JobStage::kFailed, "why");
  EXPECT_THAT(noted(3), ElementsAre("\"one\" was not printed! Laser: Why.", "no notices: there is none",
                                    "\"two\" was not printed! Laser: Why."));
}

TEST_F(JobNoticesTest, EndsWhileANoticeIsHeldBack) {
  start(std::chrono::hours(1));
  add("Report", JobStage::kFailed, "why");
  m_notices.reset();
  EXPECT_THAT(m_noted, ElementsAre());
}

}  // namespace
}  // namespace printclient
