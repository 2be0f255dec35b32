#include "server/jobs/job_history.h"

#include "corvane/base/process.h"
#include "programs/text.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace aps {
namespace {

namespace fs = std::filesystem;
using protocol::JobRecord;
using protocol::JobState;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class JobHistoryTest : public ::testing::Test {
 protected:
  JobHistoryTest() {
    m_folder = fs::temp_directory_path() / ("job_history_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
    m_log.emplace(m_folder / "aps.log");
  }
  ~JobHistoryTest() override {
    m_log.reset();
    fs::remove_all(m_folder);
  }

  fs::path file() const { return m_folder / "jobs.sqlite"; }
  std::string logged() {
    m_log->flush();
    std::ifstream in(m_folder / "aps.log", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static JobRecord record(int number, JobState state = JobState::kDelivered) {
    JobRecord job;
    job.number = number;
    job.state = state;
    job.server = L"srv";
    job.user = L"PC\\Anna";
    job.session = 5;
    job.printer = L"Laser (session 5)";
    job.document = L"B\u00FCro \u20AC";
    job.spoolerJob = L"17";
    job.process = 1234;
    job.copies = 3;
    job.pages = 12;
    job.bytes = 5000000000;
    job.began = programs::utcText(std::chrono::system_clock::now());
    job.ended = job.began;
    job.milliseconds = {1, 2, 3, 4};
    job.cause = L"Cause.";
    job.remedy = L"Remedy.";
    return job;
  }
  static protocol::Jobs all() {
    protocol::Jobs query;
    query.most = protocol::Jobs::kMost;
    return query;
  }
  static std::vector<int> numbersOf(const protocol::Jobs::Answer& answer) {
    std::vector<int> numbers;
    for (const JobRecord& job : answer.jobs)
      numbers.push_back(job.number);
    return numbers;
  }

  fs::path m_folder;
  std::optional<Log> m_log;
};

TEST_F(JobHistoryTest, ARecordComesBackWholeAlsoAfterARestart) {
  const JobRecord job = record(1);
  {
    JobHistory history(file(), {}, *m_log);
    EXPECT_EQ(history.nextNumber(), 1);
    history.put(job);
    EXPECT_THAT(history.find(all()).jobs, ElementsAre(job));
  }
  JobHistory again(file(), {}, *m_log);
  EXPECT_THAT(again.find(all()).jobs, ElementsAre(job));
  EXPECT_EQ(again.nextNumber(), 2);
}

TEST_F(JobHistoryTest, WithoutAFileTheRecordsAreInMemory) {
  JobHistory history({}, {}, *m_log);
  history.put(record(1));
  EXPECT_THAT(numbersOf(history.find(all())), ElementsAre(1));
}

TEST_F(JobHistoryTest, WithoutAFileOnlyTheLatestAreKept) {
  JobHistory history({}, {}, *m_log);
  for (int number = 1; number <= 1000; ++number) {
    history.put(record(number));
    if (number % 50 == 0) history.find(all());
  }
  const auto found = numbersOf(history.find(all()));
  EXPECT_EQ(found.front(), 1000);
  EXPECT_EQ(found.size(), static_cast<std::size_t>(JobHistory::kMostInMemory));
}

TEST_F(JobHistoryTest, ALaterRecordReplacesTheOneOfTheSameNumber) {
  JobHistory history(file(), {}, *m_log);
  history.put(record(1, JobState::kRunning));
  history.put(record(1, JobState::kPrinted));
  const auto found = history.find(all()).jobs;
  ASSERT_THAT(found, ::testing::SizeIs(1));
  EXPECT_EQ(found[0].state, JobState::kPrinted);
}

TEST_F(JobHistoryTest, EachConditionNarrowsAndTheLatestComeFirst) {
  JobHistory history(file(), {}, *m_log);
  for (int number = 1; number <= 6; ++number) {
    JobRecord job = record(number, number == 4 ? JobState::kFailed : JobState::kPrinted);
    job.began = L"2099-01-0" + std::to_wstring(number) + L"T00:00:00Z";
    if (number == 2) job.user = L"anna";
    if (number == 3) job.user = L"joanna";
    if (number == 5) job.session = 6;
    history.put(job);
  }
  EXPECT_THAT(numbersOf(history.find(all())), ElementsAre(6, 5, 4, 3, 2, 1));
  protocol::Jobs query = all();
  query.most = 2;
  query.before = 6;
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(5, 4));
  query = all();
  query.user = L"ANNA";
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(6, 5, 4, 2, 1));
  query.user = L"pc\\anna";
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(6, 5, 4, 1));
  query = all();
  query.session = 6;
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(5));
  query = all();
  query.job = 3;
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(3));
  query = all();
  query.isFailedOnly = true;
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(4));
  query = all();
  query.since = L"2099-01-03T00:00:00Z";
  query.until = L"2099-01-05T00:00:00Z";
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(4, 3));
}

TEST_F(JobHistoryTest, NoMoreThanTheMostOfOneAnswerAreGiven) {
  JobHistory history(file(), {}, *m_log);
  for (int number = 1; number <= protocol::Jobs::kMost + 1; ++number)
    history.put(record(number));
  protocol::Jobs query = all();
  query.most = 1000000;
  EXPECT_EQ(history.find(query).jobs.size(), static_cast<std::size_t>(protocol::Jobs::kMost));
  query.most = -1;
  EXPECT_THAT(history.find(query).jobs, IsEmpty());
}

TEST_F(JobHistoryTest, AJobThatWasRunningWhenTheServerEndedHasFailed) {
  {
    JobHistory history(file(), {}, *m_log);
    JobRecord running = record(1, JobState::kRunning);
    running.ended = running.cause = running.remedy = L"";
    history.put(running);
    history.put(record(2, JobState::kPrinting));
  }
  JobHistory again(file(), {}, *m_log);
  const auto found = again.find(all()).jobs;
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].state, JobState::kPrinting);
  EXPECT_EQ(found[1].state, JobState::kFailed);
  EXPECT_EQ(found[1].cause, L"The application server ended while the job was running.");
  EXPECT_EQ(found[1].remedy, L"See whether the page is there, and print again if it is not.");
  EXPECT_EQ(found[1].ended, found[1].began);
}

TEST_F(JobHistoryTest, AJobOfWhichTheClientHadToldBeforeItAnsweredHasEndedAsItSaid) {
  {
    JobHistory history(file(), {}, *m_log);
    JobRecord told = record(1, JobState::kDelivered);
    told.ended = L"";
    history.put(told);
  }
  JobHistory again(file(), {}, *m_log);
  const auto found = again.find(all()).jobs;
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].state, JobState::kDelivered);
  EXPECT_EQ(found[0].ended, found[0].began);
  EXPECT_EQ(found[0].cause, L"Cause.");
  EXPECT_EQ(again.changesToLog(10).size(), 1u);
}

TEST_F(JobHistoryTest, WhatIsTooOldOrTooMuchGoesWithTheNextStart) {
  {
    JobHistory history(file(), {}, *m_log);
    JobRecord old = record(1);
    old.began = programs::utcText(std::chrono::system_clock::now() - std::chrono::hours(24 * 11));
    history.put(old);
    for (int number = 2; number <= 6; ++number)
      history.put(record(number));
  }
  EXPECT_THAT(numbersOf(JobHistory(file(), {10, 100, 100}, *m_log).find(all())), ElementsAre(6, 5, 4, 3, 2));
  JobHistory few(file(), {10, 3, 100}, *m_log);
  EXPECT_THAT(numbersOf(few.find(all())), ElementsAre(6, 5, 4));
  EXPECT_EQ(few.nextNumber(), 7);
}

TEST_F(JobHistoryTest, AFileThatIsLargerThanItsLimitLosesTheOldest) {
  JobHistory history(file(), {10, 1000000, 1}, *m_log);
  for (int number = 1; number <= 6000; ++number) {
    JobRecord job = record(number);
    job.document = std::wstring(300, L'x');
    history.put(job);
    if (number % 500 == 0) history.find(all());
  }
  const auto latest = history.find(all());
  EXPECT_EQ(latest.jobs.front().number, 6000);
  protocol::Jobs first = all();
  first.job = 1;
  EXPECT_THAT(history.find(first).jobs, IsEmpty());
  EXPECT_LT(fs::file_size(file()), 3u * 1024 * 1024);
}

TEST_F(JobHistoryTest, AFileThatIsNoDatabaseIsSetAsideAndANewOneBegun) {
  std::ofstream(file()) << std::string(10000, 'x');
  JobHistory history(file(), {}, *m_log);
  history.put(record(history.nextNumber()));
  EXPECT_THAT(numbersOf(history.find(all())), ElementsAre(1));
  EXPECT_EQ(fs::file_size(file().string() + ".damaged"), 10000u);
  EXPECT_THAT(logged(), HasSubstr("the history of jobs in " + file().string() + " is damaged; it is set aside as " +
                                  file().string() + ".damaged, and a new one is begun"));
}

TEST_F(JobHistoryTest, AFileThatIsDamagedWhileItIsInUseIsSetAsideToo) {
  JobHistory history(file(), {}, *m_log);
  for (int number = 1; number <= 2000; ++number)
    history.put(record(number));
  history.find(all());
  {
    Database other(file());
    other.run("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  {
    std::fstream damage(file(), std::ios::binary | std::ios::in | std::ios::out);
    damage.seekp(4096);
    damage << std::string(static_cast<std::size_t>(fs::file_size(file())) - 4096, 'x');
  }
  // The pages that it has in memory are good for a while.
  for (int number = 2001; !fs::exists(file().string() + ".damaged") && number < 20000; ++number) {
    history.put(record(number));
    history.awaitWritten(number);
  }
  EXPECT_TRUE(fs::exists(file().string() + ".damaged"));
  history.put(record(20001));
  history.awaitWritten(20001);
  protocol::Jobs query = all();
  query.job = 20001;
  EXPECT_THAT(numbersOf(history.find(query)), ElementsAre(20001));
}

TEST_F(JobHistoryTest, AFileThatAnotherHasLockedHoldsUpNobodyAndItsRecordsComeLater) {
  JobHistory history(file(), {}, *m_log);
  {
    Database other(file());
    other.run("BEGIN EXCLUSIVE");
    for (int number = 1; number <= 10; ++number)
      history.put(record(number));
    while (history.find(all()).trouble.empty())
      history.awaitWritten(10);
    EXPECT_THAT(logged(),
                HasSubstr("the history of jobs (" + file().string() +
                          ") takes nothing: database is locked; jobs print all the same, and their records wait here: "
                          "make room, or see who uses the file"));
    other.run("ROLLBACK");
  }
  while (!history.find(all()).trouble.empty()) {
  }
  EXPECT_EQ(history.find(all()).jobs.size(), 10u);
  EXPECT_THAT(logged(), HasSubstr("the history of jobs (" + file().string() + ") goes on; 0 records are lost"));
}

TEST_F(JobHistoryTest, AFileThatCannotBeMadeIsSaidAndJobsHaveNumbersAllTheSame) {
  JobHistory history(m_folder / "nowhere" / "jobs.sqlite", {}, *m_log);
  const int number = history.nextNumber();
  EXPECT_GT(number, 60000000);
  history.put(record(number));
  history.awaitWritten(number);
  EXPECT_EQ(history.find(all()).trouble, L"unable to open database file");
  EXPECT_THAT(logged(), HasSubstr(") takes nothing: unable to open database file; jobs print all the same"));
}

// As the version wrote it that knew of nothing to log.
TEST_F(JobHistoryTest, AFileOfAnEarlierVersionIsTakenOverWithItsRecords) {
  {
    Database earlier(file());
    earlier.run(
        "PRAGMA journal_mode=WAL; CREATE TABLE jobs("
        "number INTEGER PRIMARY KEY, state TEXT NOT NULL, server TEXT NOT NULL, user TEXT NOT NULL,"
        "session INTEGER NOT NULL, printer TEXT NOT NULL, document TEXT NOT NULL, spooler_job TEXT NOT NULL,"
        "process INTEGER NOT NULL, copies INTEGER NOT NULL, bytes INTEGER NOT NULL, began TEXT NOT NULL,"
        "ended TEXT NOT NULL, collecting_ms INTEGER NOT NULL, sending_ms INTEGER NOT NULL, taking_ms INTEGER NOT NULL,"
        "paper_ms INTEGER NOT NULL, cause TEXT NOT NULL, remedy TEXT NOT NULL);"
        "CREATE INDEX jobs_by_time ON jobs(began);"
        "INSERT INTO jobs VALUES(41, 'printed', 's', 'u', 5, 'p', 'd', '17', 77, 2, 3, '2099-01-31T23:59:59Z',"
        "'2099-01-31T23:59:59Z', 1, 2, 3, 4, 'c', 'r');");
  }
  for (int start = 0; start < 2; ++start) {
    JobHistory history(file(), {}, *m_log);
    const auto found = history.find(all()).jobs;
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].number, 41);
    EXPECT_EQ(found[0].state, JobState::kPrinted);
    EXPECT_EQ(found[0].remedy, L"r");
    EXPECT_EQ(found[0].pages, 0);
    EXPECT_EQ(history.nextNumber(), 42);
    ASSERT_EQ(history.changesToLog(10).size(), 1u);
    EXPECT_EQ(history.changesToLog(10)[0].number, 41);
  }
  EXPECT_EQ(logged(), "");
}

TEST_F(JobHistoryTest, AChangeThatComesWhileTheOneBeforeIsLoggedIsToBeLoggedStill) {
  JobHistory history(file(), {}, *m_log);
  history.put(record(1));
  history.awaitWritten(1);
  const auto before = history.changesToLog(10);
  history.put(record(1, JobState::kPrinted));
  history.awaitWritten(1);
  history.haveBeenLogged(before);
  const auto changes = history.changesToLog(10);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].record.state, JobState::kPrinted);
  EXPECT_GT(changes[0].number, before[0].number);
  history.haveBeenLogged(changes);
  EXPECT_THAT(history.changesToLog(10), IsEmpty());
}

#ifndef _WIN32
TEST_F(JobHistoryTest, NobodyElseCanReadTheFile) {
  JobHistory history(file(), {}, *m_log);
  history.put(record(1));
  history.find(all());
  for (const auto& entry : fs::directory_iterator(m_folder)) {
    if (entry.path().filename().string().starts_with("jobs.")) {
      EXPECT_EQ(entry.status().permissions() & (fs::perms::group_all | fs::perms::others_all), fs::perms::none)
          << entry.path();
    }
  }
}
#endif

TEST_F(JobHistoryTest, AJobThatWasHeldAndOfWhichNobodySaysSoAnyMoreHasFailed) {
  {
    JobHistory history(file(), {}, *m_log);
    history.put(record(1, JobState::kHeld));
    history.put(record(2, JobState::kHeld));
  }
  JobHistory again(file(), {}, *m_log);
  again.endHeld({2});
  const auto found = again.find(all()).jobs;
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].state, JobState::kHeld);
  EXPECT_EQ(found[1].state, JobState::kFailed);
  EXPECT_EQ(found[1].cause, L"The application server holds the job no more: its file is gone.");
  EXPECT_EQ(found[1].remedy, L"Print again.");
}

TEST_F(JobHistoryTest, ANewJobComesBehindEveryOneThatIsPut) {
  JobHistory history({}, {}, *m_log);
  history.put(record(40, JobState::kHeld));
  EXPECT_EQ(history.nextNumber(), 41);
}

}  // namespace
}  // namespace aps
