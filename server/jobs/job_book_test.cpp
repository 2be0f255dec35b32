#include "server/jobs/job_book.h"

#include "corvane/base/process.h"
#include "protocol/print_job.h"
#include "tests/support/protocol/wire_bytes.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace aps {
namespace {

using protocol::JobRecord;
using protocol::JobState;
using protocol::PaperState;
using protocol::PrintResult;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class JobBookTest : public ::testing::Test {
 protected:
  static constexpr int kProcess = 77;

  ~JobBookTest() override {
    m_history.finish();
    removeFile();
  }
  std::filesystem::path fileOfItsOwn() const {
    removeFile();
    return m_file;
  }
  void removeFile() const {
    std::error_code ignored;
    for (const char* suffix : {"", "-wal", "-shm"}) {
      std::filesystem::path part = m_file;
      std::filesystem::remove(part += suffix, ignored);
    }
  }

  int begin(const std::wstring& printer = L"Laser (session 5)") { return m_book.begin(printer, 5, kProcess); }
  void start(int job, const std::wstring& spoolerJob = L"17", const std::wstring& document = L"Letter") {
    protocol::JobStart start;
    start.jobName = L"Laser - Job #" + spoolerJob;
    start.printerName = L"Laser";
    start.documentName = document;
    start.copies = 2;
    pass(job, false, static_cast<int>(protocol::PrintRequest::kStart), tests::bytesOf(start));
  }
  void answer(int job, PrintResult result) {
    pass(job, true, static_cast<int>(protocol::PrintRequest::kEnd), tests::bytesOf(protocol::JobEnd::Answer{result}));
  }
  void pass(int job, bool isReply, int number, const std::vector<unsigned char>& payload) {
    m_book.passed(job, {isReply, number, payload});
  }
  void end(int job, bool isMadeHere = true, const wchar_t* reason = L"", bool isShown = false) {
    m_book.ended(job, {4711, 0, isMadeHere, reason}, isShown);
  }
  static CS_Notice notice(const wchar_t* result, const wchar_t* number = L"17", const wchar_t* process = L"77",
                          const wchar_t* printer = L"LASER (session 5)") {
    return {L"job",
            L"",
            {{L"job", number},
             {L"printer", printer},
             {L"document", L"Letter"},
             {L"process", process},
             {L"user", L"PC\\anna"},
             {L"result", result},
             {L"session", L"5"},
             {L"bytes", L"99"},
             {L"cause", L"The cause."},
             {L"remedy", L"The remedy."}}};
  }
  void news(PaperState state, const wchar_t* job = L"Laser - Job #17", int session = 5) {
    m_book.paperNews({L"Laser", job, L"Letter", state, L"No paper.", L"Put some in."}, session, L"Laser (session 5)");
  }
  std::vector<JobRecord> all() {
    protocol::Jobs query;
    query.most = 100;
    return m_book.find(query).jobs;
  }
  JobState stateOf(int job) {
    protocol::Jobs query;
    query.most = 1;
    query.job = job;
    return m_book.find(query).jobs.at(0).state;
  }
  JobRecord only() {
    const auto found = all();
    EXPECT_THAT(found, SizeIs(1));
    return found.empty() ? JobRecord() : found[0];
  }

  const std::filesystem::path m_file =
      std::filesystem::temp_directory_path() / ("job_book_" + std::to_string(corvane::processId()));
  Log m_log{std::filesystem::path()};
  JobHistory m_history{fileOfItsOwn(), {}, m_log};
  JobBook m_book{m_history, {L"srv", true}};
};

TEST_F(JobBookTest, AJobThatRunsIsKnownFromItsStart) {
  start(begin());
  const JobRecord job = only();
  EXPECT_EQ(job.state, JobState::kRunning);
  EXPECT_EQ(job.server, L"srv");
  EXPECT_EQ(job.session, 5);
  EXPECT_EQ(job.printer, L"Laser (session 5)");
  EXPECT_EQ(job.document, L"Letter");
  EXPECT_EQ(job.spoolerJob, L"17");
  EXPECT_EQ(job.process, kProcess);
  EXPECT_EQ(job.copies, 2);
  EXPECT_NE(job.began, L"");
  EXPECT_EQ(job.ended, L"");
  EXPECT_EQ(job.milliseconds, (std::array<int, 4>{-1, -1, -1, -1}));
}

TEST_F(JobBookTest, ThePagesAreThoseOfTheNoticeAndAreNotKnownWithoutThem) {
  start(begin());
  CS_Notice told = notice(L"delivered");
  told.values.emplace_back(L"pages", L"12");
  m_book.noticed(told);
  EXPECT_EQ(only().pages, 12);
  start(begin(), L"18");
  m_book.noticed(notice(L"delivered", L"18"));
  EXPECT_EQ(all()[0].pages, 0);
  start(begin(), L"19");
  told = notice(L"delivered", L"19");
  told.values.emplace_back(L"pages", L"-3");
  m_book.noticed(told);
  EXPECT_EQ(all()[0].pages, 0);
}

// The print client tells it in front of its answer.
TEST_F(JobBookTest, WhyTheClientRefusedAJobIsItsCauseWhateverTheAnswerAndTheNoticeSay) {
  const int job = begin();
  start(job);
  news(PaperState::kAborted);
  answer(job, PrintResult::kNotTaken);
  end(job);
  m_book.noticed(notice(L"failed"));
  EXPECT_EQ(only().state, JobState::kFailed);
  EXPECT_EQ(only().cause, L"No paper.");
  EXPECT_EQ(only().remedy, L"Put some in.");
  EXPECT_EQ(only().user, L"PC\\anna");
  EXPECT_EQ(only().milliseconds[protocol::kPaper], -1);
}

TEST_F(JobBookTest, AJobThatItsPersonCanceledAtTheClientIsCanceledWhateverTheAnswerSays) {
  const int job = begin();
  start(job);
  news(PaperState::kCanceled);
  answer(job, PrintResult::kNotTaken);
  end(job);
  m_book.noticed(notice(L"failed"));
  EXPECT_EQ(only().state, JobState::kCanceled);
  EXPECT_EQ(only().cause, L"No paper.");
}

TEST_F(JobBookTest, AJobIsAtItsPrinterBetweenItsEndAndTheLastNews) {
  const int job = begin();
  EXPECT_FALSE(m_book.findAtPrinter(job));
  start(job);
  news(PaperState::kPrinting);
  EXPECT_FALSE(m_book.findAtPrinter(job));
  answer(job, PrintResult::kPrinted);
  end(job);
  const auto at = m_book.findAtPrinter(job);
  ASSERT_TRUE(at);
  EXPECT_EQ(at->what, L"job 1 \"Letter\" on \"Laser (session 5)\"");
  EXPECT_EQ(at->printer, L"Laser (session 5)");
  EXPECT_EQ(at->clientsPrinter, L"Laser");
  EXPECT_EQ(at->name, L"Laser - Job #17");
  EXPECT_EQ(at->session, 5);
  EXPECT_EQ(at->news, 1);
  news(PaperState::kPrinted);
  EXPECT_FALSE(m_book.findAtPrinter(job));
  EXPECT_FALSE(m_book.findAtPrinter(job + 1));
}

TEST_F(JobBookTest, AJobThatIsCanceledAtItsPrinterSaysByWhom) {
  const int job = begin();
  start(job);
  news(PaperState::kPrinting);
  answer(job, PrintResult::kPrinted);
  end(job);
  m_book.cancelsAtPrinter(job, L"PC\\admin");
  std::thread printer([this] { news(PaperState::kCanceled); });
  const auto record = m_book.awaitPaper(job, 1, std::chrono::hours(1));
  printer.join();
  ASSERT_TRUE(record);
  EXPECT_EQ(record->state, JobState::kCanceled);
  EXPECT_EQ(record->cause, L"It was canceled by PC\\admin.");
  EXPECT_EQ(only().cause, L"It was canceled by PC\\admin.");
}

TEST_F(JobBookTest, NewsOfAJobAtItsPrinterEndTheWaitOnlyWithACauseOrTheEnd) {
  const int job = begin();
  start(job);
  news(PaperState::kPrinting);
  answer(job, PrintResult::kPrinted);
  const auto before = m_book.awaitPaper(job, 1, std::chrono::milliseconds(0));
  ASSERT_TRUE(before);
  EXPECT_EQ(before->state, JobState::kPrinting);
  news(PaperState::kStopped);
  const auto after = m_book.awaitPaper(job, 1, std::chrono::hours(1));
  ASSERT_TRUE(after);
  EXPECT_EQ(after->cause, L"No paper.");
  EXPECT_FALSE(m_book.awaitPaper(job + 1, 0, std::chrono::hours(1)));
}

TEST_F(JobBookTest, EachJobIsCountedOnceByItsOutcomeAndByWhatItFailed) {
  const int delivered = begin();
  EXPECT_EQ(m_book.runningCount(), 1u);
  start(delivered);
  news(PaperState::kPrinting);
  answer(delivered, PrintResult::kPrinted);
  EXPECT_EQ(m_book.metrics().counts().ended[0][0], 0u);
  end(delivered);
  m_book.noticed(notice(L"delivered"));
  EXPECT_EQ(m_book.runningCount(), 0u);
  EXPECT_EQ(m_book.metrics().counts().paper[0], 0u);
  news(PaperState::kPrinted);
  news(PaperState::kPrinted);
  const int refused = begin(), cut = begin(), notTaken = begin();
  m_book.refused(refused, L"There is no such printer.");
  start(cut, L"18");
  end(cut, false);
  m_book.noticed(notice(L"failed", L"18"));
  start(notTaken, L"19");
  news(PaperState::kAborted, L"Laser - Job #19");
  answer(notTaken, PrintResult::kNotTaken);
  end(notTaken);
  m_book.noticed(notice(L"failed", L"20", L"78"));  // of which nothing was known
  const auto counts = m_book.metrics().counts();
  EXPECT_EQ(counts.ended[0], (std::array<std::uint64_t, 4>{1, 0, 0, 0}));
  EXPECT_EQ(counts.ended[2], (std::array<std::uint64_t, 4>{0, 1, 1, 2}));
  EXPECT_EQ(counts.paper, (std::array<std::uint64_t, 3>{1, 0, 0}));
  EXPECT_EQ(counts.stages[protocol::kPaper].total(), 1u);
}

TEST_F(JobBookTest, AJobThatArrivesHasItsStagesItsUserAndItsEnd) {
  const int job = begin();
  start(job);
  pass(job, false, 2, {});
  EXPECT_GE(only().milliseconds[protocol::kCollecting], 0);
  EXPECT_EQ(only().milliseconds[protocol::kSending], -1);
  pass(job, false, 3, {});
  answer(job, PrintResult::kPrinted);
  EXPECT_EQ(only().state, JobState::kDelivered);
  EXPECT_GE(only().milliseconds[protocol::kSending], 0);
  EXPECT_GE(only().milliseconds[protocol::kTaking], 0);
  EXPECT_EQ(only().milliseconds[protocol::kPaper], -1);
  EXPECT_NE(only().ended, L"");
  end(job);
  m_book.noticed(notice(L"delivered"));
  EXPECT_EQ(only().state, JobState::kDelivered);
  EXPECT_EQ(only().user, L"PC\\anna");
  EXPECT_EQ(only().bytes, 4711);
  EXPECT_EQ(only().cause, L"");
}

TEST_F(JobBookTest, WhatThePrinterDoesWithItIsFollowed) {
  const int job = begin();
  start(job);
  answer(job, PrintResult::kPrinted);
  end(job);
  news(PaperState::kStopped);
  EXPECT_EQ(only().state, JobState::kPrinting);
  EXPECT_EQ(only().cause, L"No paper.");
  EXPECT_EQ(only().remedy, L"Put some in.");
  EXPECT_EQ(only().milliseconds[protocol::kPaper], -1);
  news(PaperState::kPrinted);
  EXPECT_EQ(only().state, JobState::kPrinted);
  EXPECT_GE(only().milliseconds[protocol::kPaper], 0);
  news(PaperState::kAborted);
  EXPECT_EQ(only().state, JobState::kFailed);
  news(PaperState::kCanceled);
  EXPECT_EQ(only().state, JobState::kCanceled);
  news(PaperState::kHandedOn);
  EXPECT_EQ(only().state, JobState::kDelivered);
}

TEST_F(JobBookTest, NewsThatOvertakeTheAnswerStay) {
  const int job = begin();
  start(job);
  news(PaperState::kPrinting);
  answer(job, PrintResult::kPrinted);
  EXPECT_EQ(only().state, JobState::kPrinting);
}

TEST_F(JobBookTest, NewsOfAnotherSessionOrJobChangeNothing) {
  const int job = begin();
  start(job);
  answer(job, PrintResult::kPrinted);
  news(PaperState::kPrinted, L"Laser - Job #18");
  news(PaperState::kPrinted, L"Laser - Job #17", 6);
  EXPECT_EQ(only().state, JobState::kDelivered);
}

TEST_F(JobBookTest, AnAnswerThatSaysNoIsAFailureAndThePortMonitorsWordsAreBetter) {
  const int job = begin();
  start(job);
  answer(job, PrintResult::kDiskFailure);
  EXPECT_EQ(only().state, JobState::kFailed);
  EXPECT_EQ(only().cause, protocol::textOf(PrintResult::kDiskFailure));
  EXPECT_EQ(only().remedy, L"See in the print client's output what it says about the job.");
  m_book.noticed(notice(L"failed"));
  EXPECT_EQ(only().cause, L"The cause.");
  EXPECT_EQ(only().remedy, L"The remedy.");
}

TEST_F(JobBookTest, AJobThatIsCutSaysWhichSideLeft) {
  const int first = begin();
  start(first);
  end(first, true, L"it was killed");
  EXPECT_EQ(only().state, JobState::kFailed);
  EXPECT_EQ(only().cause, L"The port monitor left before the job's end (it was killed).");
  EXPECT_EQ(only().remedy, L"The port monitor's log says what failed there; print again.");
  const int second = begin();
  start(second, L"18");
  end(second, false);
  EXPECT_EQ(all()[0].cause, L"The session's print client left before the job's end.");
  EXPECT_EQ(all()[0].remedy, L"Start the print client, and print again.");
}

TEST_F(JobBookTest, WhatThePortMonitorSaidBeforeItLeftStays) {
  const int job = begin();
  start(job);
  m_book.noticed(notice(L"failed"));
  end(job);
  EXPECT_EQ(only().cause, L"The cause.");
}

TEST_F(JobBookTest, AJobThatWasShownInsteadIsNoFailure) {
  const int job = begin();
  start(job);
  end(job, true, L"", true);
  EXPECT_EQ(only().state, JobState::kShown);
}

TEST_F(JobBookTest, AJobThatNeverFoundItsSessionHasARecordOfItsNotice) {
  m_book.noticed(notice(L"failed", L"3", L"88", L"Nobody's"));
  const JobRecord job = only();
  EXPECT_EQ(job.state, JobState::kFailed);
  EXPECT_EQ(job.printer, L"Nobody's");
  EXPECT_EQ(job.process, 88);
  EXPECT_EQ(job.session, 5);
  EXPECT_EQ(job.spoolerJob, L"3");
  EXPECT_EQ(job.document, L"Letter");
  EXPECT_EQ(job.bytes, 99);
  EXPECT_EQ(job.cause, L"The cause.");
  EXPECT_NE(job.ended, L"");
}

TEST_F(JobBookTest, ANoticeBelongsToTheJobOfItsProcessAndNumber) {
  const int first = begin(), second = begin();
  start(first);
  start(second, L"18");
  end(first);
  end(second);
  m_book.noticed(notice(L"failed", L"17"));
  EXPECT_EQ(all()[0].user, L"");
  EXPECT_EQ(all()[1].user, L"PC\\anna");
  m_book.noticed(notice(L"failed", L"18", L"78"));
  EXPECT_EQ(all()[1].user, L"");
  EXPECT_THAT(all(), SizeIs(3));
}

TEST_F(JobBookTest, ANoticeIsNotTakenForOneOfAJobThatHasJustBegun) {
  const int first = begin();
  start(first);
  end(first);
  begin();
  m_book.noticed(notice(L"failed"));
  EXPECT_EQ(all()[0].user, L"PC\\anna");
  EXPECT_THAT(all(), SizeIs(1));
}

TEST_F(JobBookTest, ARefusedRouteIsAFailureWhoseNoticeFollows) {
  const int job = begin();
  m_book.refused(job, L"the print client has just gone");
  EXPECT_EQ(only().state, JobState::kFailed);
  EXPECT_EQ(only().cause, L"the print client has just gone");
  m_book.noticed(notice(L"failed"));
  EXPECT_EQ(only().document, L"Letter");
  EXPECT_EQ(only().cause, L"The cause.");
}

TEST_F(JobBookTest, OtherNoticesAndRequestsOfAnotherVersionAreNoJobs) {
  CS_Notice other = notice(L"refused");
  other.kind = L"printer";
  m_book.noticed(other);
  EXPECT_THAT(all(), IsEmpty());
  const int job = begin();
  pass(job, false, 1, {0x78});
  answer(job + 1, PrintResult::kPrinted);
  start(job);
  EXPECT_EQ(only().document, L"Letter");
}

TEST_F(JobBookTest, WithoutTitlesNoDocumentHasAName) {
  JobBook silent(m_history, {L"srv", false});
  const int job = silent.begin(L"Laser (session 5)", 5, kProcess);
  protocol::JobStart started;
  started.jobName = L"Laser - Job #17";
  started.documentName = L"Letter";
  const auto bytes = tests::bytesOf(started);
  silent.passed(job, {false, 1, bytes});
  silent.noticed(notice(L"failed"));
  EXPECT_EQ(only().document, L"");
  EXPECT_EQ(only().spoolerJob, L"17");
}

TEST_F(JobBookTest, TextsOfPeersAreCut) {
  start(begin(std::wstring(1000, L'p')), L"17", std::wstring(1000, L'd'));
  EXPECT_EQ(only().document.size(), JobBook::kMaxText);
  EXPECT_EQ(only().printer.size(), JobBook::kMaxText);
}

TEST_F(JobBookTest, OfJobsThatHaveEndedTheLatestAreKnownAndThoseAtTheirPrinters) {
  const int running = begin(), printing = begin(), ended = begin();
  start(running, L"1");
  start(printing, L"2");
  answer(printing, PrintResult::kPrinted);
  end(printing);
  news(PaperState::kPrinting, L"Laser - Job #2");
  start(ended, L"3");
  answer(ended, PrintResult::kPrinted);
  end(ended);
  for (std::size_t i = 0; i < JobBook::kMostEnded; ++i) {
    const int job = begin();
    start(job, L"99");
    end(job);
  }
  news(PaperState::kPrinted, L"Laser - Job #2");
  news(PaperState::kPrinted, L"Laser - Job #3");
  EXPECT_EQ(stateOf(printing), JobState::kPrinted);
  EXPECT_EQ(stateOf(ended), JobState::kDelivered);
  answer(running, PrintResult::kPrinted);
  EXPECT_EQ(stateOf(running), JobState::kDelivered);
}

TEST_F(JobBookTest, OfTooManyJobsAtTheirPrintersTheOldestIsNotFollowedAnyMore) {
  int first = 0;
  for (std::size_t i = 0; i <= JobBook::kMostAtPrinters; ++i) {
    const int job = begin();
    if (i == 0) first = job;
    const std::wstring number = std::to_wstring(i);
    start(job, number);
    answer(job, PrintResult::kPrinted);
    news(PaperState::kPrinting, (L"Laser - Job #" + number).c_str());
    end(job);
  }
  EXPECT_EQ(stateOf(first), JobState::kDelivered);
  EXPECT_EQ(stateOf(first + 1), JobState::kPrinting);
}

TEST_F(JobBookTest, OnlyAJobThatRunsCanBeCanceled) {
  EXPECT_EQ(m_book.cancel({9, L"anna"}).text, L"no job 9 is running");
  const int job = begin();
  start(job);
  answer(job, PrintResult::kPrinted);
  end(job);
  const auto ended = m_book.cancel({job, L"anna"});
  EXPECT_FALSE(ended.isDone);
  EXPECT_EQ(ended.text, L"job 1 \"Letter\" on \"Laser (session 5)\" has ended");
  news(PaperState::kPrinting);
  EXPECT_EQ(m_book.cancel({job, L"anna"}).text,
            L"job 1 \"Letter\" on \"Laser (session 5)\" is at its printer already; the person whose it is can cancel "
            L"it there");
}

// Jobs for clients that are away

TEST_F(JobBookTest, AJobThatThisServerTakesInItsClientsPlaceIsHeldAndNotOver) {
  const int job = begin();
  m_book.hold(job);
  start(job);
  answer(job, PrintResult::kPrinted);
  EXPECT_EQ(only().state, JobState::kHeld);
  end(job);
  m_book.noticed(notice(L"delivered"));
  const JobRecord held = only();
  EXPECT_EQ(held.state, JobState::kHeld);
  EXPECT_EQ(held.ended, L"");
  EXPECT_EQ(held.user, L"PC\\anna");
  EXPECT_EQ(held.bytes, 4711);
}

TEST_F(JobBookTest, AHeldJobIsDeliveredUnderItsOwnNumberAndKeepsWhatWasKnownOfIt) {
  const int job = begin();
  m_book.hold(job);
  start(job);
  answer(job, PrintResult::kPrinted);
  end(job);
  m_book.noticed(notice(L"delivered"));
  m_book.redeliver(only());
  EXPECT_EQ(only().state, JobState::kRunning);
  start(job);
  answer(job, PrintResult::kPrinted);
  end(job);
  news(PaperState::kPrinted);
  const JobRecord printed = only();
  EXPECT_EQ(printed.number, job);
  EXPECT_EQ(printed.state, JobState::kPrinted);
  EXPECT_EQ(printed.user, L"PC\\anna");
  EXPECT_NE(printed.ended, L"");
}

TEST_F(JobBookTest, WhatAPrinterDidIsToldOfTheJobThatItsClientHasAndOfNoneThatIsHeldOrWas) {
  int jobs[3] = {};
  for (int& job : jobs) {
    job = begin();
    m_book.hold(job);
    start(job);
    answer(job, PrintResult::kPrinted);
    end(job);
  }
  JobRecord known;
  known.number = jobs[1];
  m_book.tellHeld(known, JobState::kCanceled, L"It was canceled by root.", L"");
  news(PaperState::kPrinted);
  known.number = jobs[0];
  m_book.redeliver(known);
  start(jobs[0]);
  answer(jobs[0], PrintResult::kPrinted);
  end(jobs[0]);
  EXPECT_EQ(stateOf(jobs[0]), JobState::kDelivered);
  news(PaperState::kPrinted);
  EXPECT_EQ(stateOf(jobs[0]), JobState::kPrinted);
  EXPECT_EQ(stateOf(jobs[1]), JobState::kCanceled);
  EXPECT_EQ(stateOf(jobs[2]), JobState::kHeld);
}

TEST_F(JobBookTest, AHeldJobWhoseDeliveryIsCutOrNotTakenIsHeldAgain) {
  for (const bool isAnswered : {false, true}) {
    const int job = begin();
    m_book.hold(job);
    start(job);
    answer(job, PrintResult::kPrinted);
    end(job);
    JobRecord known;
    known.number = job;
    m_book.redeliver(known);
    start(job);
    if (isAnswered) answer(job, PrintResult::kDiskFailure);
    end(job, false, L"gone");
    EXPECT_EQ(stateOf(job), JobState::kHeld);
  }
}

TEST_F(JobBookTest, WhyAJobWasNotHeldStaysWhateverIsToldOfItAfterwards) {
  const int job = begin();
  m_book.hold(job);
  start(job);
  m_book.tellHeld(only(), JobState::kFailed, L"It is too long.", L"Print less.");
  end(job, false, L"it is too long");
  m_book.noticed(notice(L"failed"));
  EXPECT_EQ(only().state, JobState::kFailed);
  EXPECT_EQ(only().cause, L"It is too long.");
  EXPECT_EQ(only().remedy, L"Print less.");
  EXPECT_EQ(only().user, L"PC\\anna");
}

TEST_F(JobBookTest, AJobThatWasToBeHeldAndWasCutFailsLikeAnyOther) {
  const int job = begin();
  m_book.hold(job);
  start(job);
  end(job, true, L"");
  EXPECT_EQ(only().state, JobState::kFailed);
  EXPECT_EQ(only().cause, L"The port monitor left before the job's end.");
}

TEST_F(JobBookTest, AHeldJobOfAnEarlierServerIsToldUnderItsNumberAndLaterOnesComeBehindIt) {
  JobRecord known;
  known.number = 40;
  known.printer = L"Laser (session 5)";
  m_book.tellHeld(known, JobState::kHeld, L"The cause.", L"The remedy.");
  EXPECT_EQ(stateOf(40), JobState::kHeld);
  EXPECT_EQ(only().cause, L"The cause.");
  EXPECT_EQ(begin(), 41);
  m_book.tellHeld(known, JobState::kCanceled);
  EXPECT_EQ(stateOf(40), JobState::kCanceled);
}

TEST_F(JobBookTest, ANoticeThatAnEarlierProcessOfTheServerDidNotHearBelongsToTheRecordThatThatHasMade) {
  const int answered = begin(), cut = begin();
  start(answered);
  answer(answered, PrintResult::kPrinted);
  start(cut, L"18");
  m_history.find({});                   // all is written
  JobHistory later(m_file, {}, m_log);  // as after a kill: jobs that were running have failed
  JobBook book(later, {L"server", true});
  const auto both = [&] {
    protocol::Jobs query;
    query.most = 10;
    return later.find(query).jobs;
  };
  EXPECT_EQ(both().size(), 2u);
  book.noticed(notice(L"delivered"));
  book.noticed(notice(L"delivered", L"18"));
  ASSERT_EQ(both().size(), 2u);
  for (const JobRecord& job : both()) {
    EXPECT_EQ(job.state, JobState::kDelivered) << job.number;
    EXPECT_EQ(job.user, L"PC\\anna");
    EXPECT_EQ(job.cause, L"");
  }
  // It is another one with the same number, which the spooler's process has used again.
  book.noticed(notice(L"failed"));
  ASSERT_EQ(both().size(), 3u);
  EXPECT_EQ(both()[0].cause, L"The cause.");
  EXPECT_EQ(book.metrics().counts().ended[0][0], 0u);
  EXPECT_EQ(book.metrics().counts().ended[2][2], 1u);
}

}  // namespace
}  // namespace aps
