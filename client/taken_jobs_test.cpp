#include "client/taken_jobs.h"

#include "tests/support/own_folder.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace printclient {
namespace {

namespace fs = std::filesystem;
using protocol::HeldJobState;

const std::wstring kId(32, L'a'), kOther(32, L'b');

class TakenJobsTest : public ::testing::Test {
 protected:
  // A process that begins to hand a job on and is killed.
  void beginAndDie(const std::optional<fs::path>& file) {
    auto answer = m_jobs->ask(kId);
    answer.delivery->begin(file);
    fs::copy_file(m_folder.path() / "held" / (std::string(32, 'a') + ".begun"), m_folder.path() / "kept");
    answer.delivery.reset();
    fs::rename(m_folder.path() / "kept", m_folder.path() / "held" / (std::string(32, 'a') + ".begun"));
    restart();
  }
  void restart() { m_jobs = std::make_unique<TakenJobs>(m_folder.path() / "held"); }
  fs::path makeFile(const std::string& name, const std::string& content = "hello") const {
    std::ofstream(m_folder.path() / name, std::ios::binary) << content;
    return m_folder.path() / name;
  }
  HeldJobState stateOf(const std::wstring& id = kId) { return m_jobs->ask(id).state; }

  const OwnFolder m_folder{"taken_jobs"};
  std::unique_ptr<TakenJobs> m_jobs = std::make_unique<TakenJobs>(m_folder.path() / "held");
};

TEST_F(TakenJobsTest, AJobThatWasTakenIsKnownAlsoToTheNextProcess) {
  auto answer = m_jobs->ask(kId);
  ASSERT_EQ(answer.state, HeldJobState::kNew);
  answer.delivery->begin(std::nullopt);
  answer.delivery->end(true);
  answer.delivery.reset();
  EXPECT_EQ(stateOf(), HeldJobState::kTaken);
  EXPECT_EQ(stateOf(kOther), HeldJobState::kNew);
  restart();
  EXPECT_EQ(stateOf(), HeldJobState::kTaken);
}

TEST_F(TakenJobsTest, AJobThatWasNotTakenMayComeAgain) {
  {
    auto answer = m_jobs->ask(kId);
    answer.delivery->begin(std::nullopt);
    answer.delivery->end(false);
  }
  EXPECT_EQ(stateOf(), HeldJobState::kNew);
  m_jobs->ask(kId).delivery->begin(std::nullopt);  // and goes in the middle of it
  EXPECT_EQ(stateOf(), HeldJobState::kNew);
}

TEST_F(TakenJobsTest, WhileItIsHandedOnItIsNotSentOnceMore) {
  auto answer = m_jobs->ask(kId);
  answer.delivery->begin(std::nullopt);
  EXPECT_EQ(stateOf(), HeldJobState::kBusy);
  answer.delivery->end(true);
  EXPECT_EQ(stateOf(), HeldJobState::kTaken);
}

TEST_F(TakenJobsTest, OnlyTheLatestOfTwoDeliveriesIsHandedOn) {
  auto first = m_jobs->ask(kId), second = m_jobs->ask(kId);
  EXPECT_EQ(second.state, HeldJobState::kNew);
  EXPECT_THROW(first.delivery->begin(std::nullopt), std::runtime_error);
  first.delivery.reset();
  second.delivery->begin(std::nullopt);
  second.delivery->end(true);
  EXPECT_EQ(stateOf(), HeldJobState::kTaken);
}

TEST_F(TakenJobsTest, NobodyKnowsOfAJobThatAKilledProcessHadHandedOn) {
  beginAndDie(std::nullopt);
  EXPECT_EQ(stateOf(), HeldJobState::kUnclear);
  m_jobs->lookAtBegun();
  EXPECT_EQ(stateOf(), HeldJobState::kUnclear);
}

TEST_F(TakenJobsTest, AFileThatHasItsTemporaryNameStillWasNotTaken) {
  beginAndDie(makeFile(".temporary"));
  EXPECT_EQ(stateOf(), HeldJobState::kNew);
}

TEST_F(TakenJobsTest, AFileThatHasAnotherNameBySoWasTaken) {
  const fs::path file = makeFile(".temporary");
  makeFile("Another.bin");
  beginAndDie(file);
  fs::rename(file, m_folder.path() / "Letter.bin");
  EXPECT_EQ(stateOf(), HeldJobState::kTaken);
}

TEST_F(TakenJobsTest, AFileThatIsNowhereMakesItUnclear) {
  const fs::path file = makeFile(".temporary");
  beginAndDie(file);
  fs::remove(file);
  EXPECT_EQ(stateOf(), HeldJobState::kUnclear);
}

// What a killed process has left behind is removed when the next one starts.
TEST_F(TakenJobsTest, WhatAKilledProcessLeftIsLookedAtBeforeItIsRemoved) {
  const fs::path file = makeFile(".temporary");
  beginAndDie(file);
  m_jobs->lookAtBegun();
  fs::remove(file);
  EXPECT_EQ(stateOf(), HeldJobState::kNew);
}

TEST_F(TakenJobsTest, EachFolderHasANameOfItsOwnThatStays) {
  const std::wstring name = m_jobs->device();
  EXPECT_EQ(name.size(), 32u);
  restart();
  EXPECT_EQ(m_jobs->device(), name);
  TakenJobs other(m_folder.path() / "other");
  EXPECT_NE(other.device(), name);
}

TEST_F(TakenJobsTest, ANameThatIsNoneReachesNoFile) {
  for (const wchar_t* id : {L"", L"../../../../etc/passwd", L"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"})
    EXPECT_THROW(m_jobs->ask(id), std::runtime_error);
}

TEST_F(TakenJobsTest, AFolderThatCannotBeMadeIsSaid) {
  makeFile("file");
  TakenJobs jobs(m_folder.path() / "file" / "held");
  EXPECT_THROW(jobs.ask(kId), std::runtime_error);
  EXPECT_THROW(jobs.device(), std::runtime_error);
}

TEST_F(TakenJobsTest, TheOldestAreForgottenWhereThereAreTooMany) {
  const fs::path held = m_folder.path() / "held";
  fs::create_directories(held);
  const auto now = fs::file_time_type::clock::now();
  for (std::size_t i = 0; i < 12; ++i) {
    char name[40];
    std::snprintf(name, sizeof name, "%032zu.taken", i);
    std::ofstream(held / name) << "{}";
    fs::last_write_time(held / name, now - std::chrono::seconds(i));
  }
  m_jobs = std::make_unique<TakenJobs>(held, 10);
  EXPECT_EQ(stateOf(std::wstring(32, L'0')), HeldJobState::kTaken);
  EXPECT_EQ(stateOf(L"00000000000000000000000000000009"), HeldJobState::kTaken);
  EXPECT_EQ(stateOf(L"00000000000000000000000000000010"), HeldJobState::kNew);
  EXPECT_EQ(stateOf(L"00000000000000000000000000000011"), HeldJobState::kNew);
}

}  // namespace
}  // namespace printclient
