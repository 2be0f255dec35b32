#include "client/sinks/printer/queued_job.h"
#include "tests/support/import_seam.h"

#include <windows.h>
#include <winspool.h>

#include <gtest/gtest.h>
#include <map>
#include <stdexcept>

MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", SetJobW, FALSE)

namespace printclient {
namespace {

using protocol::PaperState;

// A queue whose jobs have the states that a test says.
class PrinterQueueTest : public ::testing::Test {
 protected:
  PrinterQueueTest() {
    OpenPrinterWSeam.replacement = [this](LPWSTR name, LPHANDLE out, LPPRINTER_DEFAULTSW) -> WINBOOL {
      EXPECT_STREQ(name, L"desk");
      *out = reinterpret_cast<HANDLE>(0x77);
      return m_isThere;
    };
    GetJobWSeam.replacement = [this](HANDLE, DWORD job, DWORD level, LPBYTE room, DWORD size,
                                     LPDWORD needed) -> WINBOOL {
      EXPECT_EQ(level, 1u);
      const auto found = m_jobs.find(job);
      *needed = sizeof(JOB_INFO_1W) + 100;
      SetLastError(found == m_jobs.end() ? m_error : ERROR_INSUFFICIENT_BUFFER);
      if (found == m_jobs.end() || size < *needed) return FALSE;
      *reinterpret_cast<JOB_INFO_1W*>(room) = {};
      reinterpret_cast<JOB_INFO_1W*>(room)->Status = found->second;
      return TRUE;
    };
    ClosePrinterSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
    SetJobWSeam.replacement = [this](HANDLE, DWORD job, DWORD level, LPBYTE, DWORD command) -> WINBOOL {
      EXPECT_EQ(level, 0u);
      EXPECT_EQ(command, static_cast<DWORD>(JOB_CONTROL_DELETE));
      SetLastError(m_error);
      return m_error == ERROR_INVALID_PARAMETER && m_jobs.erase(job) != 0;
    };
  }
  ~PrinterQueueTest() override {
    OpenPrinterWSeam.replacement = nullptr;
    GetJobWSeam.replacement = nullptr;
    ClosePrinterSeam.replacement = nullptr;
    SetJobWSeam.replacement = nullptr;
  }

  JobProgress look(std::vector<int> numbers, PaperState before = PaperState::kWaiting) const {
    QueuedJob job;
    job.printer.queue = "desk";
    job.numbers = std::move(numbers);
    job.progress.state = before;
    return openQueue(job.printer, m_isStopping)->look(job);
  }

  WINBOOL m_isThere = TRUE;
  DWORD m_error = ERROR_INVALID_PARAMETER;
  std::map<DWORD, DWORD> m_jobs;  // each with its status
  const std::atomic<bool> m_isStopping{false};
};

TEST_F(PrinterQueueTest, SaysWhatTheQueueSaysOfAJobAndTheWorstFirst) {
  const std::pair<DWORD, JobProgress> all[] = {
      {0, {PaperState::kWaiting}},
      {JOB_STATUS_SPOOLING, {PaperState::kWaiting}},
      {JOB_STATUS_PRINTING, {PaperState::kPrinting}},
      {JOB_STATUS_PRINTING | JOB_STATUS_PRINTED, {PaperState::kPrinted}},
      {JOB_STATUS_PRINTING | JOB_STATUS_PAPEROUT, {PaperState::kStopped, "has no paper", "put paper in"}},
      {JOB_STATUS_PRINTING | JOB_STATUS_OFFLINE,
       {PaperState::kStopped, "is off line", "see that it is switched on and connected"}},
      {JOB_STATUS_ERROR | JOB_STATUS_USER_INTERVENTION,
       {PaperState::kStopped, "wants somebody to do something", "see what it shows"}},
      {JOB_STATUS_ERROR, {PaperState::kStopped, "has a fault", "see what it and its queue show"}},
      {JOB_STATUS_PAUSED, {PaperState::kStopped, "keeps the job, which is paused", "let the job go on in the queue"}},
      {JOB_STATUS_PRINTING | JOB_STATUS_DELETING,
       {PaperState::kCanceled, "was told to delete the job", "print again if it is still wanted"}},
      {JOB_STATUS_COMPLETE, {PaperState::kPrinted}}};
  for (const auto& [status, progress] : all) {
    m_jobs[7] = status;
    EXPECT_EQ(look({7}), progress) << status;
  }
}

TEST_F(PrinterQueueTest, AJobThatTheQueueHasNoMoreIsPrintedOnlyWhenItWasBeingPrinted) {
  EXPECT_EQ(look({7}, PaperState::kPrinting).state, PaperState::kPrinted);
  EXPECT_EQ(look({7}, PaperState::kWaiting),
            (JobProgress{PaperState::kUnknown, "has the job no longer in its queue, and has not said how it ended",
                         "see whether it has come out"}));
  EXPECT_EQ(look({7}, PaperState::kStopped).state, PaperState::kUnknown);
}

TEST_F(PrinterQueueTest, OfSeveralCopiesTheLastDecidesAndEachCanHoldThemUp) {
  m_jobs = {{8, JOB_STATUS_PRINTING}, {9, 0}};
  EXPECT_EQ(look({7, 8, 9}).state, PaperState::kPrinting);
  m_jobs = {{9, 0}};
  EXPECT_EQ(look({7, 8, 9}).state, PaperState::kWaiting);
  m_jobs = {{8, JOB_STATUS_PRINTING}, {9, JOB_STATUS_PAPEROUT}};
  EXPECT_EQ(look({7, 8, 9}).state, PaperState::kStopped);
  m_jobs = {{9, JOB_STATUS_PRINTED}};
  EXPECT_EQ(look({7, 8, 9}).state, PaperState::kPrinted);
}

TEST_F(PrinterQueueTest, AQueueThatDoesNotTellIsAFailure) {
  m_error = ERROR_ACCESS_DENIED;
  EXPECT_THROW(look({7}), std::runtime_error);
  m_isThere = FALSE;
  EXPECT_THROW(look({7}), std::runtime_error);
}

TEST_F(PrinterQueueTest, AJobThatIsToEndIsDeletedAndNotTakenForPrintedWhenItHasGone) {
  QueuedJob job;
  job.printer.queue = "desk";
  job.numbers = {6, 7};
  job.progress.state = PaperState::kPrinting;
  m_jobs[7] = JOB_STATUS_PRINTING;  // the first copy has come out
  const auto queue = openQueue(job.printer, m_isStopping);
  queue->cancel(job);
  EXPECT_TRUE(m_jobs.empty());
  EXPECT_EQ(queue->look(job),
            (JobProgress{PaperState::kCanceled, "was told to delete the job", "print again if it is still wanted"}));
}

TEST_F(PrinterQueueTest, AJobThatHadGoneBeforeItWasToEndIsPrinted) {
  QueuedJob job;
  job.printer.queue = "desk";
  job.numbers = {7};
  job.progress.state = PaperState::kPrinting;
  const auto queue = openQueue(job.printer, m_isStopping);
  queue->cancel(job);
  EXPECT_EQ(queue->look(job).state, PaperState::kPrinted);
}

TEST_F(PrinterQueueTest, AQueueThatDoesNotLetGoOfAJobSaysWhy) {
  QueuedJob job;
  job.printer.queue = "desk";
  job.numbers = {7};
  m_error = ERROR_ACCESS_DENIED;
  EXPECT_THROW(openQueue(job.printer, m_isStopping)->cancel(job), std::runtime_error);
  EXPECT_FALSE(job.isCanceled);
}

}  // namespace
}  // namespace printclient
