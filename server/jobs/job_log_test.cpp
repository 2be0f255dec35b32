#include "server/jobs/job_log.h"

#include "corvane/base/process.h"
#include "tests/support/server/no_space_past.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace aps {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using protocol::JobRecord;
using protocol::JobState;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class JobLogTest : public ::testing::Test {
 protected:
  JobLogTest() {
    m_folder = fs::temp_directory_path() / ("aps_job_log_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
    m_log.emplace(m_folder / "aps.log");
  }
  ~JobLogTest() override {
    end();
    m_log.reset();
    fs::remove_all(m_folder);
  }

  // The parts as a server has them; those before have ended.
  void begin(const JobHistory::Limits& limits = {}) {
    end();
    m_history.emplace(m_folder / "jobs.sqlite", limits, *m_log);
    JobLog::Settings settings;
    settings.path = path();
    settings.gathering = settings.betweenTries = std::chrono::milliseconds(1);
    m_jobs.emplace(settings, *m_history, *m_log);
    m_history->start();
    m_jobs->start();
  }
  void end() {
    if (m_history) m_history->finish();
    m_jobs.reset();
    m_history.reset();
  }
  fs::path path() const { return m_folder / "out" / "jobs.json"; }
  std::string said() {
    m_log->flush();
    std::ifstream in(m_folder / "aps.log", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void waitUntilSaid(const std::string& text) {
    while (said().find(text) == std::string::npos) {
    }
  }
  // The lines of the file, each of which must be JSON.
  std::vector<Json> lines() const {
    std::vector<Json> all;
    std::ifstream in(path(), std::ios::binary);
    for (std::string line; std::getline(in, line);)
      all.push_back(Json::parse(line));
    return all;
  }
  std::vector<int> numbers() const {
    std::vector<int> all;
    for (const Json& line : lines())
      all.push_back(line.at("job"));
    return all;
  }
  static JobRecord record(int number, JobState state = JobState::kDelivered) {
    JobRecord job;
    job.number = number;
    job.state = state;
    job.server = L"srv";
    job.user = L"PC\\Anna";
    job.session = 5;
    job.printer = L"Laser (session 5)";
    job.document = L"B\u00FCro \"\u20AC\"\n";
    job.spoolerJob = L"17";
    job.process = 1234;
    job.copies = 3;
    job.pages = 12;
    job.bytes = 5000000000;
    job.began = L"2099-01-31T23:59:59Z";
    if (state != JobState::kRunning) job.ended = L"2099-02-01T00:00:01Z";
    job.milliseconds = {1, 2, 3, JobRecord::kNotReached};
    return job;
  }

  fs::path m_folder;
  std::optional<Log> m_log;
  std::optional<JobHistory> m_history;
  std::optional<JobLog> m_jobs;
};

TEST_F(JobLogTest, AJobThatHasEndedIsALineWithAllThatItsRecordHas) {
  fs::create_directory(m_folder / "out");
  begin();
  m_history->put(record(7));
  end();
  std::ifstream in(path(), std::ios::binary);
  const std::string line{std::istreambuf_iterator<char>(in), {}};
  EXPECT_EQ(line,
            "{\"job\":7,\"state\":\"delivered\",\"server\":\"srv\",\"user\":\"PC\\\\Anna\",\"session\":5,"
            "\"printer\":\"Laser (session 5)\",\"document\":\"B\u00FCro \\\"\u20AC\\\"\\n\",\"spoolerJob\":\"17\","
            "\"process\":1234,\"copies\":3,\"pages\":12,\"bytes\":5000000000,\"began\":\"2099-01-31T23:59:59Z\","
            "\"ended\":\"2099-02-01T00:00:01Z\",\"milliseconds\":{\"collecting\":1,\"sending\":2,\"taking\":3,"
            "\"paper\":null},\"cause\":\"\",\"remedy\":\"\",\"change\":2}\n");
}

TEST_F(JobLogTest, AJobThatRunsIsNoLineAndEachLaterChangeOfOneThatHasEndedIsAnother) {
  fs::create_directory(m_folder / "out");
  begin();
  m_history->put(record(1, JobState::kRunning));
  m_history->put(record(2, JobState::kPrinting));
  while (lines().empty()) {
  }
  EXPECT_THAT(numbers(), ElementsAre(2));
  m_history->put(record(2, JobState::kPrinted));
  end();
  ASSERT_THAT(numbers(), ElementsAre(2, 2));
  EXPECT_EQ(lines()[0].at("state"), "printing");
  EXPECT_EQ(lines()[1].at("state"), "printed");
  EXPECT_GT(lines()[1].at("change"), lines()[0].at("change"));
}

TEST_F(JobLogTest, ATextThatIsNoUnicodeIsALineAllTheSame) {
  fs::create_directory(m_folder / "out");
  begin();
  JobRecord job = record(1);
  job.document = std::wstring(1, static_cast<wchar_t>(0xD800)) + L"x";
  m_history->put(job);
  end();
  ASSERT_THAT(numbers(), ElementsAre(1));
}

TEST_F(JobLogTest, WhatWasWrittenIsNotWrittenByTheNextProcessAndWhatWasNotIs) {
  fs::create_directory(m_folder / "out");
  begin();
  m_history->put(record(1));
  end();
  {
    JobHistory without(m_folder / "jobs.sqlite", {}, *m_log);
    without.put(record(2));
    without.put(record(3, JobState::kRunning));
  }
  begin();
  end();
  ASSERT_THAT(numbers(), ElementsAre(1, 2, 3));
  EXPECT_EQ(lines()[2].at("state"), "failed");
  EXPECT_EQ(lines()[2].at("cause"), "The application server ended while the job was running.");
}

TEST_F(JobLogTest, MoreThanItTakesAtOnceAreAllThereOnceInTheOrderOfTheirNumbers) {
  fs::create_directory(m_folder / "out");
  begin();
  std::vector<int> all;
  for (int number = 1; number <= 3 * JobLog::kAtOnce + 1; ++number) {
    m_history->put(record(number));
    all.push_back(number);
  }
  end();
  EXPECT_EQ(numbers(), all);
}

TEST_F(JobLogTest, AFolderThatIsMissingIsSaidOnceAndNothingIsLostUntilItIsThere) {
  begin();
  waitUntilSaid(") takes no lines: ");
  for (int number = 1; number <= 10; ++number) {
    m_history->put(record(number));
    m_history->awaitWritten(number);
  }
  EXPECT_THAT(said(), HasSubstr("the log of jobs (" + path().string() + ") takes no lines: "));
  EXPECT_THAT(said(), HasSubstr("; jobs print all the same, and their records wait in the history: make room, or the "
                                "folder, or let this account write there"));
  EXPECT_THAT(said(), Not(HasSubstr("goes on")));
  fs::create_directory(m_folder / "out");
  waitUntilSaid("the log of jobs (" + path().string() +
                ") goes on; 0 records went from the history before they were written");
  end();
  EXPECT_THAT(numbers(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
  const std::string all = said();
  EXPECT_EQ(all.find("takes no lines"), all.rfind("takes no lines"));
}

TEST_F(JobLogTest, RecordsThatGoBeforeTheyAreWrittenAreCounted) {
  begin({90, 20, 200});
  waitUntilSaid(") takes no lines: ");
  for (int number = 1; number <= 520; ++number) {
    m_history->put(record(number));
    if (number % 100 == 0) m_history->awaitWritten(number);
  }
  m_history->awaitWritten(520);
  fs::create_directory(m_folder / "out");
  waitUntilSaid(") goes on; ");
  end();
  EXPECT_LT(numbers().size(), 300u);
  EXPECT_THAT(said(), HasSubstr(") goes on; " + std::to_string(520 - numbers().size()) + " records went"));
}

#ifndef _WIN32
TEST_F(JobLogTest, AFullDiskCutsNoLineForGood) {
  fs::create_directory(m_folder / "out");
  std::ofstream(path(), std::ios::binary) << std::string(999999, ' ') + "\n";
  begin();
  {
    const tests::NoSpacePast limit(1000100);  // the history and the log are shorter
    m_history->put(record(1));
    m_history->put(record(2));
    waitUntilSaid(") takes no lines: File too large; ");
    EXPECT_EQ(fs::file_size(path()), 1000100u);
    m_history->put(record(1, JobState::kPrinted));
    m_history->awaitWritten(1);
  }
  waitUntilSaid(") goes on; 0 records went");
  end();
  std::ifstream in(path(), std::ios::binary);
  std::string blank, line;
  std::getline(in, blank);
  std::vector<std::string> states;
  while (std::getline(in, line))
    states.push_back(Json::parse(line).at("state"));
  EXPECT_THAT(states, ElementsAre("delivered", "delivered", "printed"));
}

TEST_F(JobLogTest, AFileThatWasRenamedIsFollowedByANewOne) {
  fs::create_directory(m_folder / "out");
  begin();
  m_history->put(record(1));
  while (numbers().empty()) {
  }
  fs::rename(path(), m_folder / "out" / "jobs.old");
  m_jobs->reopen();
  while (!fs::exists(path())) {
  }
  m_history->put(record(2));
  end();
  EXPECT_THAT(numbers(), ElementsAre(2));
}
#endif

}  // namespace
}  // namespace aps
