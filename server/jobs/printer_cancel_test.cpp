#include "server/jobs/printer_cancel.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

using protocol::JobRecord;
using protocol::JobState;

JobRecord recordOf(JobState state, const wchar_t* cause = L"") {
  JobRecord job;
  job.state = state;
  job.cause = cause;
  job.remedy = L"Do it there.";
  return job;
}

TEST(PrinterCancel, TheAnswerSaysWhatBecameOfTheJob) {
  const auto canceled = outcomeAtPrinter(L"job 7", recordOf(JobState::kCanceled, L"It was canceled by anna."));
  EXPECT_TRUE(canceled.isDone);
  EXPECT_EQ(canceled.text, L"job 7 is canceled at its printer");
  const auto printed = outcomeAtPrinter(L"job 7", recordOf(JobState::kPrinted));
  EXPECT_FALSE(printed.isDone);
  EXPECT_EQ(printed.text, L"job 7 was printed before its printer could cancel it");
  const auto silent = outcomeAtPrinter(L"job 7", recordOf(JobState::kPrinting));
  EXPECT_FALSE(silent.isDone);
  EXPECT_EQ(silent.text, L"the printer of job 7 has been told to cancel it, and has not said yet what became of it");
  EXPECT_EQ(outcomeAtPrinter(L"job 7", recordOf(JobState::kPrinting, L"The printer does not answer.")).text,
            L"job 7 is at its printer still: The printer does not answer. Do it there.");
  EXPECT_EQ(outcomeAtPrinter(L"job 7", recordOf(JobState::kFailed, L"It burns.")).text,
            L"job 7 has ended as failed: It burns. Do it there.");
  EXPECT_FALSE(outcomeAtPrinter(L"job 7", recordOf(JobState::kFailed)).isDone);
}

class PrinterCancelTest : public ::testing::Test {
 protected:
  static protocol::CancelJob::Answer cancel(PrinterCancel& canceling, int job) {
    return canceling.cancel({job, L"anna"});
  }

  Log m_log{std::filesystem::path()};
  JobHistory m_history{{}, {}, m_log};
  JobBook m_book{m_history, {L"srv", true}};
  SessionTable m_sessions{SessionTable::Limits()};
  ClientNews m_clients;
  PrinterCancel m_cancel{m_book, m_sessions, m_clients};
};

TEST_F(PrinterCancelTest, AJobThatIsUnknownIsRefusedAsBefore) {
  EXPECT_EQ(cancel(m_cancel, 9).text, L"no job 9 is running");
}

TEST_F(PrinterCancelTest, AClientThatIsAwayIsSaidAndTheJobIsNotTakenForCanceledByAnybody) {
  CS_Notice ended{L"job",
                  L"",
                  {{L"job", L"17"},
                   {L"printer", L"Laser (session 5)"},
                   {L"document", L"Letter"},
                   {L"process", L"1"},
                   {L"result", L"delivered"},
                   {L"session", L"5"}}};
  m_book.noticed(ended);
  m_book.paperNews({L"Laser", L"Laser - Job #17", L"Letter", protocol::PaperState::kPrinting, L"", L""}, 5,
                   L"Laser (session 5)");
  const auto answer = cancel(m_cancel, 1);
  EXPECT_FALSE(answer.isDone);
  EXPECT_EQ(
      answer.text,
      L"job 1 \"Letter\" on \"Laser (session 5)\" is at its printer: the print client of session 5 is away: cancel "
      L"it at the printer, or when the client is back");
  m_book.paperNews({L"Laser", L"Laser - Job #17", L"Letter", protocol::PaperState::kCanceled, L"The user did.", L""}, 5,
                   L"Laser (session 5)");
  EXPECT_EQ(m_book.awaitPaper(1, 0, std::chrono::milliseconds(0))->cause, L"The user did.");
}

}  // namespace
}  // namespace aps
