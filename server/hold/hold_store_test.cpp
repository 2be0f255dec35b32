#include "server/hold/hold_store.h"

#include "programs/text.h"
#include "tests/support/joined_thread.h"
#include "tests/support/own_folder.h"

#include <atomic>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace aps {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::wstring kOneKey(64, L'1'), kOtherKey(64, L'2');

class HoldStoreTest : public ::testing::Test {
 protected:
  HoldStoreTest() { open(); }
  void open() {
    m_store.reset();
    m_store = std::make_unique<HoldStore>(m_folder.path() / "held", m_limits, m_log);
  }
  static HeldJob job(int number, int session = 5, const std::wstring& key = kOneKey) {
    HeldJob job;
    job.id = std::wstring(28, L'a') + std::to_wstring(1000 + number);
    job.number = number;
    job.session = session;
    job.key = key;
    return job;
  }
  void hold(int number, int session = 5, const std::wstring& key = kOneKey, std::size_t bytes = 5) {
    const auto coming = m_store->begin(job(number, session, key));
    coming->append(std::vector<unsigned char>(bytes, 'x'));
    coming->complete();
    EXPECT_TRUE(m_store->settle(number));
  }
  // The number of the next job; 0 for none.
  int take(int session = 5, const std::wstring& key = kOneKey) {
    const auto next = m_store->take({session, key});
    return next ? next->number : 0;
  }
  std::string refusalOf(int number, std::size_t bytes = 5, int session = 5) {
    try {
      hold(number, session, kOneKey, bytes);
      return "";
    } catch (const HoldRefusal& refusal) {
      return refusal.what();
    }
  }
  // All that may happen to a job.
  void comeAndGo(int number, int session) {
    hold(number, session);
    EXPECT_EQ(take(session), number);
    m_store->markSent(number, L"here");
    EXPECT_EQ(m_store->sentTo(number), L"here");
    m_store->unmarkSent(number);
    m_store->setAside(number, "the cause", "the remedy");
    m_store->retry({session, kOneKey});
    EXPECT_TRUE(m_store->claim(number));
    m_store->putBack(number);
    EXPECT_TRUE(m_store->isInLine({session, kOneKey}));
    if (number % 2 == 0) {
      EXPECT_TRUE(m_store->remove(number));
    } else {
      EXPECT_FALSE(m_store->setDamagedAside(number).empty());
    }
    m_store->begin(job(number, session));  // whose bringer leaves at once
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_folder.path() / "held"))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  const OwnFolder m_folder{"hold_store"};
  HoldStore::Limits m_limits;
  Log m_log{m_folder.path() / "log"};
  std::unique_ptr<HoldStore> m_store;
};

TEST_F(HoldStoreTest, JobsAreTakenInTheirOrderOneAtATime) {
  hold(3);
  hold(1);
  hold(2);
  EXPECT_EQ(take(), 3);
  EXPECT_EQ(take(), 0);  // while one is delivered
  m_store->putBack(3);
  EXPECT_EQ(take(), 3);
  EXPECT_TRUE(m_store->remove(3));
  EXPECT_EQ(take(), 1);
  EXPECT_TRUE(m_store->remove(1));
  EXPECT_EQ(take(), 2);
  EXPECT_TRUE(m_store->remove(2));
  EXPECT_EQ(take(), 0);
  EXPECT_THAT(files(), ElementsAre("in-use"));
}

TEST_F(HoldStoreTest, AnotherServerFindsThemInTheSameOrderAndGoesOnBehindThem) {
  hold(1);
  hold(2);
  m_store->remove(1);
  open();
  hold(3);
  EXPECT_THAT(files(), ElementsAre("000000000002.job", "000000000003.job", "in-use"));
  EXPECT_EQ(take(), 2);
  m_store->remove(2);
  EXPECT_EQ(take(), 3);
}

TEST_F(HoldStoreTest, AnotherKeyOrSessionNeverGetsAJob) {
  hold(1, 5, kOneKey);
  EXPECT_EQ(take(5, kOtherKey), 0);
  EXPECT_EQ(take(6, kOneKey), 0);
  EXPECT_FALSE(m_store->isInLine({5, kOtherKey}));
  open();
  EXPECT_EQ(take(5, kOtherKey), 0);
  EXPECT_EQ(take(5, kOneKey), 1);
}

TEST_F(HoldStoreTest, AJobIsNotTakenBeforeWhoBroughtItKnows) {
  const auto coming = m_store->begin(job(1));
  EXPECT_TRUE(m_store->isInLine({5, kOneKey}));
  EXPECT_EQ(take(), 0);
  EXPECT_FALSE(m_store->settle(1));
  coming->complete();
  EXPECT_EQ(take(), 0);
  EXPECT_TRUE(m_store->settle(1));
  EXPECT_EQ(take(), 1);
}

TEST_F(HoldStoreTest, AJobThatIsWholeGoesBeforeLaterOnesAlsoBeforeItIsSettled) {
  const auto coming = m_store->begin(job(1));
  coming->complete();
  hold(2);
  EXPECT_EQ(take(), 0);
  m_store->settle(1);
  EXPECT_EQ(take(), 1);
}

TEST_F(HoldStoreTest, OfAJobThatIsNotCompletedNothingStays) {
  m_store->begin(job(1))->append(std::vector<unsigned char>(100000, 'x'));
  EXPECT_THAT(files(), ElementsAre("in-use"));
  EXPECT_FALSE(m_store->isInLine({5, kOneKey}));
  std::ofstream(m_folder.path() / "held" / "000000000009.part") << "of a server that was killed";
  open();
  EXPECT_THAT(files(), ElementsAre("in-use"));
}

// Its end comes while the file is being completed on another thread.
TEST_F(HoldStoreTest, AJobWhoseBringerHasLeftBeforeItWasWholeGoesWhenItIsAndHoldsUpNoOther) {
  const auto coming = m_store->begin(job(1));
  coming->append(std::vector<unsigned char>(5, 'x'));
  EXPECT_FALSE(m_store->remove(1));
  hold(2);
  EXPECT_EQ(take(), 2);
  m_store->putBack(2);
  coming->complete();
  EXPECT_FALSE(m_store->settle(1));
  EXPECT_THAT(files(), ElementsAre("000000000002.job", "in-use"));
  EXPECT_EQ(m_store->all().size(), 1u);
  EXPECT_EQ(take(), 2);
}

TEST_F(HoldStoreTest, OneThatIsSetAsideHoldsUpNoOtherUntilItIsTriedAgain) {
  hold(1);
  hold(2);
  EXPECT_EQ(take(), 1);
  m_store->setAside(1, "the cause", "the remedy");
  EXPECT_EQ(m_store->find(1)->cause, "the cause");
  EXPECT_EQ(take(), 2);
  m_store->remove(2);
  EXPECT_FALSE(m_store->isInLine({5, kOneKey}));
  EXPECT_EQ(take(), 0);
  m_store->retry({5, kOneKey});
  EXPECT_EQ(take(), 1);
}

TEST_F(HoldStoreTest, OneThatIsJustDeliveredIsNotRemovedByOthers) {
  hold(1);
  EXPECT_EQ(take(), 1);
  EXPECT_FALSE(m_store->claim(1));
  m_store->putBack(1);
  EXPECT_TRUE(m_store->claim(1));
  EXPECT_EQ(take(), 0);
  EXPECT_FALSE(m_store->claim(1));
  EXPECT_TRUE(m_store->remove(1));
  EXPECT_FALSE(m_store->remove(1));
  EXPECT_FALSE(m_store->claim(1));
}

TEST_F(HoldStoreTest, OneThatIsWholeCanBeClaimedBeforeItIsSettledAndIsSettledAllTheSame) {
  const auto coming = m_store->begin(job(1));
  EXPECT_FALSE(m_store->claim(1));
  coming->complete();
  EXPECT_TRUE(m_store->claim(1));
  m_store->putBack(1);
  EXPECT_EQ(take(), 0);
  EXPECT_TRUE(m_store->claim(1));
  EXPECT_TRUE(m_store->settle(1));
  EXPECT_FALSE(m_store->settle(1));
  EXPECT_EQ(take(), 0);
  m_store->putBack(1);
  EXPECT_EQ(take(), 1);
}

TEST_F(HoldStoreTest, WhatIsHeldForEachSessionIsTold) {
  EXPECT_THAT(m_store->bySession(), IsEmpty());
  const auto from = std::chrono::system_clock::now();
  hold(1, 6, kOneKey, 10);
  hold(2, 5, kOneKey, 20);
  hold(3, 5, kOtherKey, 300000);
  const auto coming = m_store->begin(job(4));
  coming->append(std::vector<unsigned char>(5, 'x'));
  const auto list = m_store->bySession();
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0], (protocol::HeldForSession{5, 2, 300020, list[0].since}));
  EXPECT_EQ(list[1], (protocol::HeldForSession{6, 1, 10, list[1].since}));
  EXPECT_GE(list[0].since, programs::utcText(from));
  EXPECT_LE(list[0].since, programs::utcText(std::chrono::system_clock::now()));
}

TEST_F(HoldStoreTest, WhereItWasSentIsKnownToTheNextServerUntilTheJobGoes) {
  hold(1);
  EXPECT_EQ(m_store->sentTo(1), std::nullopt);
  m_store->markSent(1, L"here");
  EXPECT_EQ(m_store->sentTo(1), L"here");
  open();
  EXPECT_EQ(m_store->sentTo(1), L"here");
  m_store->markSent(1, L"there");
  open();
  EXPECT_EQ(m_store->sentTo(1), L"there");
  m_store->unmarkSent(1);
  open();
  EXPECT_EQ(m_store->sentTo(1), std::nullopt);
  m_store->markSent(1, L"");
  EXPECT_EQ(m_store->sentTo(1), L"");
  m_store->remove(1);
  EXPECT_THAT(files(), ElementsAre("in-use"));
}

TEST_F(HoldStoreTest, EachLimitRefusesWithItsWordsAndLeavesTheOthersTheirRoom) {
  m_limits = {1, 2, 2, 3, 7};
  open();
  EXPECT_EQ(refusalOf(1, 700000), "");
  EXPECT_EQ(refusalOf(2, 700000),
            "with this job more than 1 MB would be held for session 5, which is the limit (--hold-size)");
  EXPECT_EQ(refusalOf(3, 300000), "");
  EXPECT_EQ(refusalOf(4), "2 jobs are held for session 5, which is the limit (--hold-jobs)");
  EXPECT_EQ(refusalOf(5, 900000, 6), "");
  EXPECT_EQ(refusalOf(6, 5, 7), "3 jobs are held for all sessions, which is the limit (--hold-total-jobs)");
  m_store->remove(3);
  EXPECT_EQ(refusalOf(7, 900000, 7),
            "with this job more than 2 MB would be held for all sessions, which is the limit (--hold-total)");
  EXPECT_EQ(refusalOf(8, 5, 7), "");
  open();
  EXPECT_EQ(refusalOf(9, 5, 8), "3 jobs are held for all sessions, which is the limit (--hold-total-jobs)");
}

TEST_F(HoldStoreTest, WhatIsRefusedInItsMiddleGivesItsRoomBack) {
  m_limits.megabytes = 1;
  open();
  for (int number = 1; number <= 3; ++number)
    EXPECT_NE(refusalOf(number, 2000000), "");
  EXPECT_EQ(refusalOf(4, 1000000), "");
  EXPECT_THAT(files(), ElementsAre("000000000004.job", "in-use"));
}

TEST_F(HoldStoreTest, OnlyWhatIsOlderThanTheLimitAndAtRestIsExpired) {
  m_limits.days = 2;
  open();
  hold(1);
  hold(2);
  const auto now = std::chrono::system_clock::now();
  EXPECT_THAT(m_store->expired(now + std::chrono::hours(47)), IsEmpty());
  EXPECT_EQ(m_store->expired(now + std::chrono::hours(49)).size(), 2u);
  EXPECT_EQ(take(), 1);
  EXPECT_EQ(m_store->expired(now + std::chrono::hours(49)).size(), 1u);
}

TEST_F(HoldStoreTest, ADamagedFileIsSetAsideWithALineAndTheOthersStay) {
  hold(1);
  hold(2);
  fs::resize_file(m_folder.path() / "held" / "000000000001.job", 20);
  open();
  EXPECT_THAT(files(), ElementsAre("000000000001.job.damaged", "000000000002.job", "in-use"));
  EXPECT_EQ(take(), 2);
  m_log.finish();
  std::ifstream in(m_folder.path() / "log");
  const std::string log{std::istreambuf_iterator<char>(in), {}};
  EXPECT_THAT(log, HasSubstr("000000000001.job cannot be used: its end is missing; it is set aside as "));
}

TEST_F(HoldStoreTest, TheSameJobTwiceIsThereOnce) {
  hold(1);
  const fs::path folder = m_folder.path() / "held";
  m_store.reset();
  fs::copy_file(folder / "000000000001.job", folder / "000000000002.job");
  open();
  EXPECT_EQ(take(), 1);
  m_store->remove(1);
  EXPECT_EQ(take(), 0);
}

TEST_F(HoldStoreTest, AnyThreadMayUseItAtAnyTime) {
  std::atomic<int> working{3};
  std::vector<JoinedThread> threads;
  for (const int session : {1, 2, 3}) {
    threads.emplace_back([this, session, &working] {
      for (int round = 0; round < 10; ++round)
        comeAndGo(session * 1000 + round, session);
      --working;
    });
  }
  while (working > 0) {
    EXPECT_LE(m_store->all().size(), 3u);
    EXPECT_LE(m_store->owners().size(), 3u);
    EXPECT_LE(m_store->bySession().size(), 3u);
    EXPECT_THAT(m_store->expired(std::chrono::system_clock::now()), IsEmpty());
    // Of what is not there.
    m_store->retry({4, kOneKey});
    m_store->putBack(1);
    m_store->setAside(1, "", "");
    EXPECT_FALSE(m_store->claim(1) || m_store->settle(1) || m_store->remove(1) || m_store->find(1));
    EXPECT_FALSE(m_store->isInLine({4, kOneKey}) || m_store->take({4, kOneKey}) || m_store->sentTo(1));
    EXPECT_TRUE(m_store->pathOf(1).empty() && m_store->setDamagedAside(1).empty());
    m_store->unmarkSent(1);
    m_store->removeLeft();
  }
  threads.clear();
  EXPECT_THAT(m_store->owners(), IsEmpty());
}

TEST_F(HoldStoreTest, AFolderThatAnotherServerHasIsRefused) {
  try {
    const HoldStore other(m_folder.path() / "held", m_limits, m_log);
    ADD_FAILURE() << "two servers with one folder";
  } catch (const std::runtime_error& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("another aps holds jobs in "));
  }
}

TEST_F(HoldStoreTest, AFileInThePlaceOfTheFolderIsRefused) {
  std::ofstream(m_folder.path() / "file") << "x";
  EXPECT_THROW(HoldStore(m_folder.path() / "file", m_limits, m_log), std::runtime_error);
}

#ifndef _WIN32
TEST_F(HoldStoreTest, AFolderThatOthersMayUseIsRefused) {
  const fs::path folder = m_folder.path() / "open";
  fs::create_directory(folder);
  fs::permissions(folder, fs::perms::owner_all | fs::perms::group_read);
  try {
    const HoldStore store(folder, m_limits, m_log);
    ADD_FAILURE() << "everybody may look into it";
  } catch (const std::runtime_error& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("make it private with: chmod go-rwx "));
  }
}
#endif

}  // namespace
}  // namespace aps
