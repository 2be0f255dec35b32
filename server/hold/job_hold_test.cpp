#include "server/hold/job_hold.h"

#include "corvane/components/component_server.h"
#include "corvane/trust/key.h"
#include "tests/support/own_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace aps {
namespace {

namespace fs = std::filesystem;
using protocol::JobState;

class JobHoldTest : public ::testing::Test {
 protected:
  JobHoldTest() {
    CS_ComponentServer::initialize(0, 0);
    fs::create_directory(m_folder.path() / "keys");
    fs::permissions(m_folder.path() / "keys", fs::perms::owner_all);
    makeKey();
  }
  ~JobHoldTest() override {
    m_hold.reset();
    m_history.finish();
  }
  void makeKey() const {
    const std::string file = m_keys.file(corvane::Identity::session(5));
    fs::remove(file);
    corvane::Key::writeNew(file);
  }
  corvane::Bytes32 key() const { return m_keys.read(corvane::Identity::session(5)).mark(); }
  void open(int days = 7) {
    m_hold.reset();
    HoldStore::Limits limits;
    limits.days = days;
    m_hold = std::make_unique<JobHold>(JobHold::Settings{folder(), limits, true, std::chrono::milliseconds(50)},
                                       JobHold::Context{m_log, m_sessions, m_news, m_book, m_notices, m_keys});
  }
  fs::path folder() const { return m_folder.path() / "held"; }
  // What an earlier server has held so long ago.
  void makeHeld(int number, std::chrono::hours age) const {
    const PrivateFolder made(folder());
    HeldJob job;
    job.id = std::wstring(28, L'a') + std::to_wstring(1000 + number);
    job.number = number;
    job.session = 5;
    job.key = corvane::toHex(key());
    job.printer = L"Laser (session 5)";
    job.start.jobName = L"Laser - Job #17";
    job.start.documentName = L"Letter";
    job.held =
        std::chrono::duration_cast<std::chrono::seconds>((std::chrono::system_clock::now() - age).time_since_epoch())
            .count();
    HeldFileWriter(folder() / "x.part").complete(job, folder() / ("00000000000" + std::to_string(number) + ".job"));
  }
  protocol::JobRecord record(int number) {
    protocol::Jobs query;
    query.job = number;
    query.most = 1;
    const auto found = m_book.find(query).jobs;
    return found.empty() ? protocol::JobRecord() : found[0];
  }
  SessionTable::Found away() const {
    SessionTable::Found found;
    found.session = 5;
    found.key = key();
    return found;
  }
  std::vector<NoticeList::Entry> notices() { return m_notices.after(0, {}, m_cancelled).entries; }

  const OwnFolder m_folder{"job_hold"};
  const corvane::KeyFolder m_keys{(m_folder.path() / "keys").string()};
  const std::atomic<bool> m_cancelled{false};
  Log m_log{m_folder.path() / "log"};
  SessionTable m_sessions{SessionTable::Limits{}};
  ClientNews m_news;
  NoticeList m_notices;
  JobHistory m_history{{}, {}, m_log};
  JobBook m_book{m_history, {L"srv", true}};
  std::unique_ptr<JobHold> m_hold;
};

TEST_F(JobHoldTest, OnlyASessionWithItsKeyAndWithoutAClientHasItsJobsHeld) {
  open();
  SessionTable::Found found = away();
  EXPECT_TRUE(m_hold->wants(found));
  found.client = CS_Connection::create();
  EXPECT_FALSE(m_hold->wants(found));
  found = away();
  found.key = {};
  EXPECT_FALSE(m_hold->wants(found));
  found = away();
  makeKey();
  EXPECT_FALSE(m_hold->wants(found)) << "its key was replaced";
  fs::remove(m_keys.file(corvane::Identity::session(5)));
  EXPECT_FALSE(m_hold->wants(found)) << "its key was taken away";
}

TEST_F(JobHoldTest, WhileJobsAreHeldLaterOnesAreAsWellThoughTheClientIsThere) {
  makeHeld(1, {});
  open();
  SessionTable::Found found = away();
  found.client = CS_Connection::create();
  EXPECT_TRUE(m_hold->wants(found));
  EXPECT_TRUE(m_hold->cancel({1, L"anna"}));
  EXPECT_FALSE(m_hold->wants(found));
}

TEST_F(JobHoldTest, WhatAnEarlierServerHasHeldIsInTheRecords) {
  makeHeld(7, {});
  open();
  const protocol::JobRecord job = record(7);
  EXPECT_EQ(job.state, JobState::kHeld);
  EXPECT_EQ(job.server, L"srv");
  EXPECT_EQ(job.printer, L"Laser (session 5)");
  EXPECT_EQ(job.document, L"Letter");
  EXPECT_EQ(job.spoolerJob, L"17");
  EXPECT_EQ(m_history.nextNumber(), 8);
}

TEST_F(JobHoldTest, AJobThatIsCanceledIsGoneAndItsRecordAndANoticeSaySo) {
  makeHeld(7, {});
  open();
  const auto answer = m_hold->cancel({7, L"PC\\anna"});
  ASSERT_TRUE(answer);
  EXPECT_TRUE(answer->isDone);
  EXPECT_EQ(answer->text, L"job 7 \"Letter\" on \"Laser (session 5)\", which was held, is canceled");
  EXPECT_EQ(record(7).state, JobState::kCanceled);
  EXPECT_EQ(record(7).cause, L"It was canceled by PC\\anna.");
  EXPECT_FALSE(fs::exists(folder() / "000000000007.job"));
  EXPECT_FALSE(m_hold->cancel({7, L"anna"}));
  ASSERT_EQ(notices().size(), 1u);
  EXPECT_EQ(notices()[0].notice.kind, L"held");
  EXPECT_EQ(notices()[0].notice.line,
            L"Job 17 \"Letter\" on \"Laser (session 5)\" (session 5) was held, and is canceled: It was canceled by "
            L"PC\\anna.");
  const std::vector<std::pair<std::wstring, std::wstring>> values = {
      {L"job", L"17"},         {L"printer", L"Laser (session 5)"},         {L"document", L"Letter"}, {L"session", L"5"},
      {L"state", L"canceled"}, {L"cause", L"It was canceled by PC\\anna."}};
  EXPECT_EQ(notices()[0].notice.values, values);
}

TEST_F(JobHoldTest, AJobThatNobodyComesForInTimeIsGivenUpAndItsRecordSaysSo) {
  makeHeld(1, std::chrono::hours(49));
  makeHeld(2, std::chrono::hours(47));
  open(2);
  while (record(1).state == JobState::kHeld)
    std::this_thread::yield();
  EXPECT_EQ(record(1).state, JobState::kFailed);
  EXPECT_EQ(record(1).cause, L"Its print client has not come for it within 2 days (--hold-days).");
  EXPECT_EQ(record(1).remedy, L"Print again when it is there.");
  EXPECT_EQ(record(2).state, JobState::kHeld);
  m_hold.reset();
  EXPECT_FALSE(fs::exists(folder() / "000000000001.job"));
  EXPECT_TRUE(fs::exists(folder() / "000000000002.job"));
}

TEST_F(JobHoldTest, OneDayIsSaidAsOne) {
  makeHeld(1, std::chrono::hours(25));
  open(1);
  while (record(1).state == JobState::kHeld)
    std::this_thread::yield();
  EXPECT_EQ(record(1).cause, L"Its print client has not come for it within 1 day (--hold-days).");
}

TEST_F(JobHoldTest, EndsAlsoWhileNothingIsLookedAtForHours) {
  makeHeld(1, {});
  m_hold = std::make_unique<JobHold>(JobHold::Settings{folder(), {}, true, std::chrono::hours(1000)},
                                     JobHold::Context{m_log, m_sessions, m_news, m_book, m_notices, m_keys});
  EXPECT_TRUE(m_hold->cancel({1, L"anna"}));
  m_hold.reset();
}

TEST_F(JobHoldTest, AComponentThatNobodyExpectsGetsNoJob) {
  open();
  EXPECT_EQ(m_hold->expected(nullptr, 1), nullptr);
  const auto place = m_hold->prepare(1, away(), L"Laser (session 5)", 77);
  place->expect(3);
  EXPECT_EQ(m_hold->expected(place->connection.get(), 3), nullptr) << "the wrong end";
  EXPECT_FALSE(m_hold->ended(1, 3, false));
}

}  // namespace
}  // namespace aps
