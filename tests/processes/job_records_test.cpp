// What the application server knows of jobs: while they run, when they are canceled, and when it is killed.

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_table.h"
#include "tests/processes/scene.h"

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <signal.h>
#include <sqlite3.h>
#include <thread>
#include <unistd.h>

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

class JobRecords : public ::testing::Test {
 protected:
  // Announces a job with some of its data.
  static void begin(MonitorPeer& peer, int number, const std::wstring& title) {
    ASSERT_TRUE(peer.attach(kLaserPrinter));
    peer.startJob({L"Laser-2 - Job #" + std::to_wstring(number), L"Laser-2", title, L"RAW"}, {1, 1, 1, 1}, 2);
    peer.writeJob("hello");
  }
  template <class IsIt>
  static AdministrationPeer::Job waitFor(AdministrationPeer& tool, const IsIt& isIt) {
    for (;;) {
      const auto jobs = tool.jobs(10);
      if (jobs.size() == 1 && isIt(jobs[0])) return jobs[0];
    }
  }
  static AdministrationPeer::Job waitFor(AdministrationPeer& tool, int state) {
    return waitFor(tool, [state](const auto& job) { return job.state == state; });
  }
};

// The whole numbers in the first column of an SQL query.
std::vector<long long> numbers(const std::filesystem::path& file, const std::string& query) {
  sqlite3* database = nullptr;
  sqlite3_stmt* statement = nullptr;
  EXPECT_EQ(sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  sqlite3_busy_timeout(database, 10000);
  EXPECT_EQ(sqlite3_prepare_v2(database, query.c_str(), -1, &statement, nullptr), SQLITE_OK) << query;
  std::vector<long long> found;
  while (sqlite3_step(statement) == SQLITE_ROW)
    found.push_back(sqlite3_column_int64(statement, 0));
  sqlite3_finalize(statement);
  sqlite3_close(database);
  return found;
}

// The latest line of each job in logs of jobs, every one of which is whole JSON, and how many lines there are.
struct LoggedJobs {
  explicit LoggedJobs(const std::vector<std::filesystem::path>& files) {
    for (const auto& file : files) {
      std::ifstream in(file, std::ios::binary);
      EXPECT_TRUE(in) << file;
      for (std::string line; std::getline(in, line); ++lines) {
        EXPECT_FALSE(in.eof()) << "without its end: " << line;
        const auto job = nlohmann::json::parse(line);
        auto& latest = jobs[job.at("job")];
        if (latest.is_null() || latest.at("change") < job.at("change")) latest = job;
      }
    }
  }
  std::map<int, nlohmann::json> jobs;
  int lines = 0;
};

TEST_F(JobRecords, AJobIsKnownWhileItRunsAndWhenItHasArrived) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  AdministrationPeer tool(scene.port());
  MonitorPeer peer(scene.port());
  begin(peer, 17, L"Letter");
  auto job = waitFor(tool, [](const auto& known) { return known.bytes > 0; });
  EXPECT_EQ(job.state, kRunning);
  EXPECT_EQ(job.session, 5);
  EXPECT_EQ(job.process, 1234);
  EXPECT_EQ(job.copies, 2);
  EXPECT_EQ(job.printer, kLaserPrinter);
  EXPECT_EQ(job.document, L"Letter");
  EXPECT_EQ(job.spoolerJob, L"17");
  char host[256] = {};
  gethostname(host, sizeof host - 1);
  EXPECT_EQ(job.server, corvane::fromUtf8(host));
  EXPECT_EQ(job.ended, L"");
  EXPECT_EQ(peer.endJob(), 1);
  job = waitFor(tool, kDelivered);
  EXPECT_NE(job.ended, L"");
  EXPECT_EQ(job.cause, L"");
  peer.notify(1234, L"spoolsv",
              {L"job",
               L"Job 17 was delivered",
               {{L"job", L"17"},
                {L"printer", kLaserPrinter},
                {L"document", L"Letter"},
                {L"process", L"1234"},
                {L"user", L"PC\\anna"},
                {L"result", L"delivered"},
                {L"session", L"5"},
                {L"bytes", L"5"}}});
  EXPECT_EQ(waitFor(tool, [](const auto& known) { return !known.user.empty(); }).user, L"PC\\anna");
}

TEST_F(JobRecords, ACanceledJobEndsOnBothSidesWithItsReasonAndNothingArrives) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  AdministrationPeer tool(scene.port());
  MonitorPeer peer(scene.port());
  begin(peer, 17, L"Letter");
  const int number = waitFor(tool, kRunning).number;
  while (scene.files(5).empty()) {
  }
  const auto [isDone, text] = tool.cancel(number, L"PC\\admin");
  EXPECT_TRUE(isDone);
  EXPECT_EQ(text, L"job 1 \"Letter\" on \"Laser-2 (session 5)\" is canceled");
  try {
    peer.endJob();
    ADD_FAILURE() << "the end was answered";
  } catch (const CS_Exception& failure) {
    EXPECT_THAT(failure.detail(), HasSubstr(L"the other side of the bridge has gone: canceled by PC\\admin"));
  }
  client->waitForLine("dropped \"Letter\": the job was cut after ");
  EXPECT_THAT(scene.server().waitForLine("job canceled: "), HasSubstr(" bytes passed on; canceled by PC\\admin"));
  const auto job = waitFor(tool, kCanceled);
  EXPECT_EQ(job.cause, L"It was canceled by PC\\admin.");
  while (!scene.files(5).empty()) {
  }
  EXPECT_THAT(scene.server().waitForLine("wants job 1 canceled"),
              HasSubstr("PC\\admin wants job 1 canceled: job 1 \"Letter\" on \"Laser-2 (session 5)\" is canceled"));
  const auto [isDoneAgain, again] = tool.cancel(number, L"PC\\admin");
  EXPECT_FALSE(isDoneAgain);
  EXPECT_EQ(again, L"job 1 \"Letter\" on \"Laser-2 (session 5)\" has ended");
}

TEST_F(JobRecords, AJobThatEndsAtTheMomentItIsCanceledHasOneEnd) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  AdministrationPeer tool(scene.port());
  int canceled = 0;
  for (int round = 1; round <= 200; ++round) {
    MonitorPeer peer(scene.port());
    const std::wstring title = L"Round " + std::to_wstring(round);
    begin(peer, round, title);
    bool isDone = false;
    std::thread other([&] {
      for (int turn = 0; turn < 100 * round; ++turn)
        std::atomic_signal_fence(std::memory_order_seq_cst);
      isDone = tool.cancel(round, L"anna").first;
    });
    int answer = 0;
    try {
      answer = peer.endJob();
    } catch (const CS_Exception&) {
    }
    other.join();
    int state = kRunning;
    while (state == kRunning)
      state = tool.jobs(1).at(0).state;
    canceled += state == kCanceled ? 1 : 0;
    // Who was told that it is printed finds it as that.
    const bool isPrinted = answer == 1 || !isDone;
    EXPECT_TRUE(!isPrinted || state == kDelivered) << round;
  }
  std::printf("of 200 jobs %d were canceled\n", canceled);
}

TEST_F(JobRecords, AThousandJobsOfTenUsersAreCountedBySqlAndInTheLogOfJobsThatIsRenamedMeanwhile) {
  Scene scene({"--history", "{folder}/jobs.sqlite", "--job-log", "{folder}/jobs.json"});
  const auto log = scene.folder() / "jobs.json", before = scene.folder() / "jobs.before";
  const auto client = scene.startClient(5, {"Laser-2"});
  std::vector<std::thread> users;
  for (int user = 0; user < 10; ++user) {
    users.emplace_back([&, user] {
      for (int i = 0; i < 100; ++i) {
        MonitorPeer peer(scene.port());
        const int number = user * 100 + i;
        begin(peer, number, L"Letter " + std::to_wstring(number));
        EXPECT_EQ(peer.endJob(), 1);
        peer.notify(1234, L"spoolsv",
                    {L"job",
                     L"delivered",
                     {{L"job", std::to_wstring(number)},
                      {L"printer", kLaserPrinter},
                      {L"document", L"Letter " + std::to_wstring(number)},
                      {L"process", L"1234"},
                      {L"user", L"user" + std::to_wstring(user)},
                      {L"result", L"delivered"},
                      {L"session", L"5"},
                      {L"bytes", L"5"}}});
      }
    });
  }
  EXPECT_TRUE(comesTrue([&] { return std::filesystem::exists(log) && file_size(log) > 0; }, 60));
  std::filesystem::rename(log, before);
  scene.server().signal(SIGHUP);
  for (std::thread& user : users)
    user.join();
  const auto file = scene.folder() / "jobs.sqlite";
  // The notices are not answered.
  const auto isTold = [&] {
    return numbers(file, "SELECT count(*) FROM jobs WHERE user <> ''") == std::vector<long long>{1000};
  };
  EXPECT_TRUE(comesTrue(isTold, 60));
  scene.server().signal(SIGTERM);
  scene.server().wait();
  EXPECT_EQ(numbers(file, "SELECT count(*) FROM jobs"), std::vector<long long>{1000});
  EXPECT_EQ(numbers(file, "SELECT count(DISTINCT document) FROM jobs"), std::vector<long long>{1000});
  EXPECT_EQ(numbers(file, "SELECT count(*) FROM jobs WHERE state = 'delivered' GROUP BY user ORDER BY user"),
            std::vector<long long>(10, 100));
  const LoggedJobs logged({before, log});
  std::map<std::string, int> ofUsers;
  for (const auto& [number, job] : logged.jobs)
    if (job.at("state") == "delivered") ++ofUsers[job.at("user")];
  EXPECT_EQ(ofUsers.size(), 10u);
  for (const auto& [user, count] : ofUsers)
    EXPECT_EQ(count, 100) << user;
  std::printf("%d lines of %zu jobs\n", logged.lines, logged.jobs.size());
}

TEST_F(JobRecords, AFullDiskBelowTheHistoryIsSaidAndStopsNoJob) {
  Scene scene({"--history", "{folder}/jobs.sqlite"}, {"/bin/sh", "-c", "ulimit -f 200; exec \"$0\" \"$@\""});
  const auto client = scene.startClient(5, {"Laser-2"});
  for (int number = 1; number <= 200; ++number) {
    MonitorPeer peer(scene.port());
    begin(peer, number, L"Letter " + std::to_wstring(number));
    ASSERT_EQ(peer.endJob(), 1) << number;
  }
  EXPECT_THAT(scene.server().waitForLine(") takes nothing: "),
              HasSubstr("the history of jobs (" + (scene.folder() / "jobs.sqlite").string() + ") takes nothing: "));
  EXPECT_EQ(scene.files(5).size(), 200u);
  // What was written before is there and whole.
  const auto file = scene.folder() / "jobs.sqlite";
  EXPECT_GT(numbers(file, "SELECT count(*) FROM jobs").at(0), 0);
  EXPECT_EQ(numbers(file, "SELECT count(*) FROM pragma_integrity_check WHERE integrity_check <> 'ok'"),
            std::vector<long long>{0});
}

// Jobs on several connections, while the server is killed and comes back, again and again.
TEST_F(JobRecords, OfAServerThatIsKilledNoRecordIsLostOfAJobThatHadEndedAndNoneIsThereTwice) {
  const int kills = std::getenv("MG_LONG_TESTS") != nullptr ? 100 : 10;
  Scene scene({"--history", "{folder}/jobs.sqlite", "--job-log", "{folder}/jobs.json", "--client-wait", "20"});
  const auto client = scene.startClient(5, {"Laser-2"});
  const int port = scene.port();
  std::atomic<bool> isOver{false}, isUp{true};
  std::atomic<int> ended{0};
  std::mutex lock;
  std::set<int> answered;
  std::vector<std::thread> users;
  for (int user = 0; user < 4; ++user) {
    users.emplace_back([&, user] {
      for (int number = user; !isOver; number += 4) {
        while (!isUp)
          std::this_thread::yield();
        try {
          MonitorPeer peer(port);
          if (!peer.attach(kLaserPrinter)) continue;
          peer.startJob({L"Laser-2 - Job #" + std::to_wstring(number), L"Laser-2", std::to_wstring(number), L"RAW"},
                        {1, 1, 1, 1});
          peer.writeJob("hello");
          if (peer.endJob() != 1) continue;
          const std::lock_guard<std::mutex> guard(lock);
          answered.insert(number);
          ++ended;
        } catch (const CS_Exception&) {
        }
      }
    });
  }
  for (int kill = 0; kill < kills; ++kill) {
    const int before = ended;
    while (ended < before + 5 + kill % 7)
      std::this_thread::yield();
    isUp = false;
    scene.server().signal(SIGKILL);
    scene.server().wait();
    scene.restartServer();
    isUp = true;
  }
  isOver = true;
  for (std::thread& user : users)
    user.join();
  scene.server().signal(SIGTERM);
  scene.server().wait();
  const auto file = scene.folder() / "jobs.sqlite";
  std::multiset<int> recorded;
  for (const long long number : numbers(file, "SELECT spooler_job FROM jobs WHERE state = 'delivered'"))
    recorded.insert(static_cast<int>(number));
  for (const int number : answered)
    EXPECT_EQ(recorded.count(number), 1u) << number;
  EXPECT_EQ(numbers(file, "SELECT count(*) FROM jobs WHERE state NOT IN ('delivered', 'failed')"),
            std::vector<long long>{0});
  EXPECT_THAT(numbers(file, "SELECT spooler_job FROM jobs GROUP BY spooler_job HAVING count(*) > 1"), SizeIs(0));
  const LoggedJobs logged({scene.folder() / "jobs.json"});
  std::multiset<std::string> delivered;
  for (const auto& [number, job] : logged.jobs)
    if (job.at("state") == "delivered") delivered.insert(job.at("spoolerJob"));
  for (const int number : answered)
    EXPECT_EQ(delivered.count(std::to_string(number)), 1u) << number;
  EXPECT_EQ(logged.jobs.size(), static_cast<std::size_t>(numbers(file, "SELECT count(*) FROM jobs").at(0)));
  std::printf("%d kills, %zu jobs had ended, %zu have a record that says so, %zu of %zu in %d lines\n", kills,
              answered.size(), recorded.size(), delivered.size(), logged.jobs.size(), logged.lines);
}

}  // namespace
}  // namespace tests
