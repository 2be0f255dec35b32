#include "server/notice_list.h"

#include <algorithm>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using std::chrono::hours;
using ::testing::IsEmpty;
using ::testing::SizeIs;
constexpr std::chrono::milliseconds kNoWait{0};

CS_Notice jobNotice(const std::wstring& line) {
  return {L"job", line, {{L"result", L"delivered"}}};
}

class NoticeListTest : public ::testing::Test {
 protected:
  // Asks on a thread of its own and waits longer than a test may take.
  std::future<NoticeList::Answer> ask(int after) {
    return std::async(std::launch::async, [this, after] { return m_list.after(after, hours(1), m_cancelled); });
  }

  NoticeList m_list;
  std::atomic<bool> m_cancelled{false};
};

TEST_F(NoticeListTest, NumbersThemFromOneAndGivesThoseAfterANumber) {
  EXPECT_EQ(m_list.after(0, kNoWait, m_cancelled).latest, 0);
  for (const wchar_t* line : {L"a", L"b", L"c"})
    m_list.add(jobNotice(line));
  const auto answer = m_list.after(1, hours(1), m_cancelled);
  EXPECT_EQ(answer.latest, 3);
  ASSERT_THAT(answer.entries, SizeIs(2));
  EXPECT_EQ(answer.entries[0].number, 2);
  EXPECT_EQ(answer.entries[0].notice.line, L"b");
  EXPECT_EQ(answer.entries[0].notice.values, jobNotice(L"").values);
  EXPECT_EQ(answer.entries[1].number, 3);
  EXPECT_THAT(m_list.after(3, kNoWait, m_cancelled).entries, IsEmpty());
}

TEST_F(NoticeListTest, GivesTheLatestNumberOnlyAndAtOnceWhenNoneAreWanted) {
  m_list.add(jobNotice(L"a"));
  const auto answer = m_list.after(-1, hours(1), m_cancelled);
  EXPECT_EQ(answer.latest, 1);
  EXPECT_THAT(answer.entries, IsEmpty());
}

TEST_F(NoticeListTest, ANumberOfAnEarlierListIsAnsweredAtOnce) {
  const auto answer = m_list.after(17, hours(1), m_cancelled);
  EXPECT_EQ(answer.latest, 0);
  EXPECT_THAT(answer.entries, IsEmpty());
}

TEST_F(NoticeListTest, ANoticeThatArrivesEndsTheWaitForIt) {
  auto answer = ask(0);
  m_list.add(jobNotice(L"a"));
  ASSERT_THAT(answer.get().entries, SizeIs(1));
}

TEST_F(NoticeListTest, NobodyWaitsOnceItIsClosed) {
  auto answer = ask(0);
  m_list.close();
  EXPECT_THAT(answer.get().entries, IsEmpty());
  EXPECT_THAT(ask(0).get().entries, IsEmpty());
}

TEST_F(NoticeListTest, ACancelledWaitEnds) {
  auto answer = ask(0);
  m_cancelled = true;
  m_list.wake();
  EXPECT_THAT(answer.get().entries, IsEmpty());
}

TEST_F(NoticeListTest, KeepsSoManyAndNoMore) {
  for (int i = 1; i <= protocol::Notices::kKept + 1; ++i)
    m_list.add(jobNotice(std::to_wstring(i)));
  const auto answer = m_list.after(0, kNoWait, m_cancelled);
  EXPECT_EQ(answer.latest, protocol::Notices::kKept + 1);
  ASSERT_THAT(answer.entries, SizeIs(protocol::Notices::kKept));
  EXPECT_EQ(answer.entries.front().number, 2);
}

TEST_F(NoticeListTest, CutsWhatIsTooLongAndStaysWithinItsUnits) {
  CS_Notice notice = jobNotice(std::wstring(5000, L'x'));
  notice.values.assign(40, {std::wstring(5000, L'n'), std::wstring(5000, L'v')});
  for (int i = 0; i < 100; ++i)
    m_list.add(notice);
  const auto answer = m_list.after(0, kNoWait, m_cancelled);
  EXPECT_EQ(answer.entries.back().notice.line.size(), 2048u);
  EXPECT_THAT(answer.entries.back().notice.values, SizeIs(CS_Notice::kMaxValues));
  EXPECT_EQ(answer.entries.back().notice.values.back().second.size(), 2048u);
  const std::size_t units = 3 + 2048 + 64 * 2048;
  EXPECT_THAT(answer.entries, SizeIs(NoticeList::kUnits / units));
}

TEST_F(NoticeListTest, APrintClientDrivesOutItsOwnOldestAndNothingElse) {
  m_list.add(jobNotice(L"a job"));
  m_list.addOfClient(7, jobNotice(L"another client"));
  for (int i = 0; i < 2000; ++i)
    m_list.addOfClient(5, jobNotice(std::to_wstring(i)));
  const auto answer = m_list.after(0, kNoWait, m_cancelled);
  EXPECT_EQ(answer.latest, 2002);
  ASSERT_THAT(answer.entries, SizeIs(2 + NoticeList::kOfOneSession));
  EXPECT_EQ(answer.entries[0].notice.line, L"a job");
  EXPECT_EQ(answer.entries[1].notice.line, L"another client");
  EXPECT_EQ(answer.entries[2].notice.line, std::to_wstring(2000 - NoticeList::kOfOneSession));
  EXPECT_EQ(answer.entries.back().notice.line, L"1999");
}

TEST_F(NoticeListTest, WhereThereAreManyClientsThoseWithTheMostMakeRoom) {
  m_list.add(jobNotice(L"a job"));
  for (int session = 1; session <= 10; ++session) {
    for (int i = 0; i < NoticeList::kOfOneSession; ++i)
      m_list.addOfClient(session, jobNotice(L"of many"));
  }
  for (int i = 0; i < 20; ++i)
    m_list.addOfClient(100, jobNotice(L"of few"));
  const auto answer = m_list.after(0, kNoWait, m_cancelled);
  ASSERT_THAT(answer.entries, SizeIs(1 + NoticeList::kOfClients));
  EXPECT_EQ(answer.entries.front().notice.line, L"a job");
  EXPECT_EQ(std::count_if(answer.entries.begin(), answer.entries.end(),
                          [](const NoticeList::Entry& entry) { return entry.notice.line == L"of few"; }),
            20);
}

}  // namespace
}  // namespace aps
