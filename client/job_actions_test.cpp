#include "client/job_actions.h"

#include "tests/support/client/page_fixture.h"

#include <condition_variable>
#include <fstream>
#include <iterator>

namespace printclient {
namespace {

// Takes a job when it is let, and ends its wait when the job is canceled.
class HeldSink : public Sink {
 public:
  TakenJob take(const ArrivedJob& job) override {
    std::unique_lock<std::mutex> guard(m_lock);
    const CancelRequest::Handler onCancel(*job.cancel, [this] { m_changed.notify_all(); });
    m_isTaking = true;
    m_changed.notify_all();
    while (!m_isLet && !job.isCanceled())
      m_changed.wait_for(guard, std::chrono::milliseconds(20));
    if (!m_isLet) throw SinkRefusal("you canceled it", "print it again");
    return {"to the sink"};
  }
  void awaitTaking() {
    std::unique_lock<std::mutex> guard(m_lock);
    EXPECT_TRUE(m_changed.wait_for(guard, std::chrono::minutes(1), [this] { return m_isTaking; }));
  }
  void let() {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isLet = true;
    m_changed.notify_all();
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_isTaking = false;
  bool m_isLet = false;
};

class JobActionsTest : public PageFixture {
 protected:
  // The job, once it is over.
  BoardJob ended(std::uint64_t number) {
    std::mutex lock;
    std::condition_variable changed;
    const JobBoard::Watch watch(board(), [&] {
      const std::lock_guard<std::mutex> guard(lock);
      changed.notify_all();
    });
    std::unique_lock<std::mutex> guard(lock);
    for (;;) {
      const auto job = board().find(number);
      if (job && isOver(job->stage)) return *job;
      changed.wait_for(guard, std::chrono::milliseconds(50));
    }
  }
};

TEST_F(JobActionsTest, AJobThatIsPrintedAgainIsOneOfItsOwnWithTheSameData) {
  const std::uint64_t number = print(L"Report", kPdf);
  EXPECT_EQ(board().find(number)->stage, JobStage::kHandedOn);
  EXPECT_EQ(board().find(number)->kept, ".pdf");
  EXPECT_EQ(m_actions->printAgain(number), "");
  const BoardJob again = ended(number + 1);
  EXPECT_TRUE(again.isAgain);
  EXPECT_EQ(again.title, "Report");
  EXPECT_EQ(again.where, "to Report (2).pdf");
  std::ifstream in(m_folder / "out" / "Report (2).pdf", std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), kPdf);
}

TEST_F(JobActionsTest, WhatIsNotKeptIsNotPrintedAgain) {
  const std::uint64_t number = print(L"Report", kPdf);
  m_documents->dropOld(KeptDocuments::Clock::now() + std::chrono::hours(9));
  EXPECT_EQ(board().find(number)->kept, "");
  EXPECT_EQ(m_actions->printAgain(number),
            "The document of this job is not kept any more. Print it from its application.");
}

TEST_F(JobActionsTest, AJobThatIsComingIsCanceledAndNothingOfItIsPrinted) {
  Job job(ticket(L"Report"), *m_output);
  job.append(bytes("half"));
  const std::uint64_t number = board().newerThan(0).order->front();
  EXPECT_EQ(m_actions->cancel(number), "");
  EXPECT_TRUE(board().find(number)->isCanceling);
  while (!job.cancelRequest().isMade())
    std::this_thread::yield();
  EXPECT_EQ(job.end(), PrintResult::kNotTaken);
  EXPECT_EQ(board().find(number)->stage, JobStage::kCanceled);
  EXPECT_EQ(filesIn("out"), 0u);
  EXPECT_EQ(m_actions->cancel(number), "This job is over already.");
}

TEST_F(JobActionsTest, AJobThatItsSinkTakesIsCanceledThere) {
  const auto sink = std::make_shared<HeldSink>();
  m_output->setSink(L"Laser", sink);
  std::thread printing([this] { print(L"Report", kPdf); });
  sink->awaitTaking();
  const std::uint64_t number = board().newerThan(0).order->front();
  EXPECT_EQ(board().find(number)->stage, JobStage::kHandingOver);
  EXPECT_EQ(m_actions->cancel(number), "");
  printing.join();
  EXPECT_EQ(board().find(number)->stage, JobStage::kCanceled);
  EXPECT_EQ(board().find(number)->cause, "you canceled it");
}

TEST_F(JobActionsTest, ASinkThatIsDoneBeforeItLooksHasPrintedTheJobAndThatIsSaid) {
  const auto sink = std::make_shared<HeldSink>();
  m_output->setSink(L"Laser", sink);
  std::thread printing([this] { print(L"Report", kPdf); });
  sink->awaitTaking();
  const std::uint64_t number = board().newerThan(0).order->front();
  board().change(number, [](BoardJob& job) { job.isCanceling = true; });
  sink->let();
  printing.join();
  EXPECT_EQ(board().find(number)->stage, JobStage::kHandedOn);
  EXPECT_EQ(board().find(number)->where, "to the sink, before it could be canceled");
  EXPECT_FALSE(board().find(number)->isCanceling);
}

TEST_F(JobActionsTest, NoMoreThanSoManyThingsAreDoneAtATime) {
  const std::uint64_t number = print(L"Report", kPdf);
  const auto sink = std::make_shared<HeldSink>();
  m_output->setSink(L"Laser", sink);
  for (std::size_t i = 0; i < JobActions::kMostAtATime; ++i)
    EXPECT_EQ(m_actions->printAgain(number), "");
  EXPECT_EQ(m_actions->printAgain(number),
            "Too many things are being done at the moment. Try again when one of them is done.");
  sink->let();
  for (std::size_t i = 1; i <= JobActions::kMostAtATime; ++i)
    EXPECT_EQ(ended(number + i).stage, JobStage::kHandedOn);
}

}  // namespace
}  // namespace printclient
