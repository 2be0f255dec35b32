#include "server/client_news.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ClientNewsTest : public ::testing::Test {
 protected:
  using Failure = ClientNews::Failure;

  // Comes in place of a connection.
  class Host : public ClientNews::Host {
   public:
    Host(ClientNewsTest& test, int client) : m_test(test), m_client(client) {}
    void tell(const Failure& failure) override { m_test.receive(m_client, failure); }

   private:
    ClientNewsTest& m_test;
    const int m_client;
  };

  ClientNewsTest() {
    for (int i = 0; i < 2; ++i) {
      m_clients[i] = CS_Connection::create();
      m_hosts[i] = CS_RCPtr<ClientNews::Host>(new Host(*this, i));
      m_news.enter(m_clients[i].get(), m_hosts[i]);
    }
  }
  ~ClientNewsTest() override {
    hold(false);
    m_news.endAll();
    for (const auto& client : m_clients)
      CS_Connection::destroy(client, true);
  }

  // While it is held, the first client takes nothing.
  void receive(int client, const Failure& failure) {
    std::unique_lock<std::mutex> guard(m_lock);
    ++m_sending;
    m_changed.notify_all();
    m_changed.wait(guard, [&] { return !m_isHeld || client != 0; });
    m_received[client].push_back(failure);
    m_changed.notify_all();
    if (m_throws) throw std::bad_alloc();
  }
  void hold(bool isHeld) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isHeld = isHeld;
    m_changed.notify_all();
  }
  std::vector<Failure> received(int client, std::size_t count) {
    std::unique_lock<std::mutex> guard(m_lock);
    m_changed.wait(guard, [&] { return m_received[client].size() >= count; });
    return m_received[client];
  }
  void waitUntilSending(int count) {
    std::unique_lock<std::mutex> guard(m_lock);
    m_changed.wait(guard, [&] { return m_sending >= count; });
  }
  static std::vector<std::wstring> documents(const std::vector<Failure>& failures) {
    std::vector<std::wstring> names;
    for (const Failure& failure : failures)
      names.push_back(failure.document);
    return names;
  }

  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_isHeld = false;
  bool m_throws = false;
  int m_sending = 0;
  std::vector<Failure> m_received[2];
  CS_RCPtr<CS_Connection> m_clients[2];
  CS_RCPtr<ClientNews::Host> m_hosts[2];
  ClientNews m_news;  // the last, so that it ends first
};

TEST_F(ClientNewsTest, TellsTheClientThatTheJobWasFor) {
  m_news.jobAttached(L"Laser (session 5)", m_clients[0].get(), L"Laser");
  m_news.jobAttached(L"Laser (session 6)", m_clients[1].get(), L"Laser");
  m_news.jobFailed(L"LASER (session 5)", L"letter", L"Ghostscript: undefined in bar.", L"Mend it.");
  const auto told = received(0, 1);
  ASSERT_THAT(told, SizeIs(1));
  EXPECT_EQ(told[0].printer, L"Laser");
  EXPECT_EQ(told[0].document, L"letter");
  EXPECT_EQ(told[0].cause, L"Ghostscript: undefined in bar.");
  EXPECT_EQ(told[0].remedy, L"Mend it.");
  m_news.jobFailed(L"Laser (session 6)", L"other", L"x", L"y");
  EXPECT_THAT(documents(received(1, 1)), ElementsAre(L"other"));
  EXPECT_THAT(received(0, 1), SizeIs(1));
}

TEST_F(ClientNewsTest, KeepsTheOrder) {
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  for (const wchar_t* document : {L"1", L"2", L"3"})
    m_news.jobFailed(L"Laser", document, L"x", L"y");
  EXPECT_THAT(documents(received(0, 3)), ElementsAre(L"1", L"2", L"3"));
}

TEST_F(ClientNewsTest, TellsNobodyOfAPrinterWithoutAJob) {
  m_news.jobFailed(L"Laser", L"letter", L"x", L"y");
  m_news.jobCut(L"Laser", L"x", L"y");
  m_news.jobAttached(L"Ink", m_clients[0].get(), L"Ink");
  m_news.jobFailed(L"Ink", L"last", L"x", L"y");
  EXPECT_THAT(documents(received(0, 1)), ElementsAre(L"last"));
}

TEST_F(ClientNewsTest, TheNextClientOfASessionHearsNothingOfEarlierJobs) {
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.leave(m_clients[0].get());
  m_news.enter(m_clients[0].get(), m_hosts[0]);  // another user's, say
  m_news.jobFailed(L"Laser", L"secret", L"x", L"y");
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobFailed(L"Laser", L"own", L"x", L"y");
  EXPECT_THAT(documents(received(0, 1)), ElementsAre(L"own"));
}

TEST_F(ClientNewsTest, AJobThatIsAttachedWhileItsClientLeavesIsNobodys) {
  m_news.leave(m_clients[0].get());
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.enter(m_clients[0].get(), m_hosts[0]);
  m_news.jobFailed(L"Laser", L"secret", L"x", L"y");
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobFailed(L"Laser", L"own", L"x", L"y");
  EXPECT_THAT(documents(received(0, 1)), ElementsAre(L"own"));
}

TEST_F(ClientNewsTest, WhatTheClientAnsweredItselfIsNotToldToIt) {
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  for (const wchar_t* cause :
       {L"The print client got no data.", L"The print client could not write the document.",
        L"The print client got a PDF without its end.", L"The print client does not know the job.",
        L"The print client got a piece of data that was not as long as it said."})
    m_news.jobFailed(L"Laser", L"letter", cause, L"y");
  m_news.jobCut(L"Laser", L"cut", L"y");
  m_news.jobFailed(L"Laser", L"last", L"Ghostscript: undefined in bar", L"y");
  EXPECT_THAT(documents(received(0, 1)), ElementsAre(L"last"));
}

TEST_F(ClientNewsTest, ACutIsToldWhenNobodyHasSaidWhy) {
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobCut(L"laser", L"cut", L"again");
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobFailed(L"Laser", L"letter", L"x", L"y");
  m_news.jobCut(L"Laser", L"cut", L"again");
  m_news.jobFailed(L"Laser", L"last", L"x", L"y");
  const auto told = received(0, 3);
  EXPECT_THAT(documents(told), ElementsAre(L"", L"letter", L"last"));
  EXPECT_EQ(told[0].cause, L"cut");
  EXPECT_EQ(told[0].remedy, L"again");
}

TEST_F(ClientNewsTest, TellsOfAPrinterThatCannotBeHadWhileItsClientIsThere) {
  m_news.printerRefused(m_clients[0].get(), L"Laser", L"refused", L"Rename it.");
  const auto told = received(0, 1);
  EXPECT_TRUE(told[0].isOfPrinter);
  EXPECT_EQ(told[0].printer, L"Laser");
  EXPECT_EQ(told[0].cause, L"refused");
  EXPECT_EQ(told[0].remedy, L"Rename it.");
  m_news.leave(m_clients[1].get());
  m_news.printerRefused(m_clients[1].get(), L"Laser", L"refused", L"Rename it.");
}

TEST_F(ClientNewsTest, ATextEndsAfterAThousandCharacters) {
  const std::wstring longest(1000, L'x');
  m_news.jobAttached(L"Laser", m_clients[0].get(), longest + L"1");
  m_news.jobFailed(L"Laser", longest + L"2", longest + L"3", longest + L"4");
  m_news.printerRefused(m_clients[0].get(), longest, longest + L"5", L"Rename it.");
  const auto told = received(0, 2);
  for (const std::wstring& text :
       {told[0].printer, told[0].document, told[0].cause, told[0].remedy, told[1].printer, told[1].cause})
    EXPECT_EQ(text, longest);
  EXPECT_EQ(told[1].remedy, L"Rename it.");
}

TEST_F(ClientNewsTest, AClientThatTakesNothingHoldsUpNobodyAndKeepsTheLatest) {
  hold(true);
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobAttached(L"Ink", m_clients[1].get(), L"Ink");
  m_news.jobFailed(L"Laser", L"first", L"x", L"y");
  waitUntilSending(1);
  for (int i = 1; i <= 40; ++i)
    m_news.jobFailed(L"Laser", std::to_wstring(i), L"x", L"y");
  m_news.jobFailed(L"Ink", L"other", L"x", L"y");
  EXPECT_THAT(documents(received(1, 1)), ElementsAre(L"other"));
  hold(false);
  const auto told = documents(received(0, 1 + ClientNews::kMostWaiting));
  EXPECT_EQ(told.front(), L"first");
  EXPECT_EQ(told[1], L"9");
  EXPECT_EQ(told.back(), L"40");
  EXPECT_EQ(told.size(), 33u);
}

TEST_F(ClientNewsTest, ASendThatFailsIsNotTheEndOfTheNews) {
  m_throws = true;
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobFailed(L"Laser", L"1", L"x", L"y");
  m_news.jobFailed(L"Laser", L"2", L"x", L"y");
  EXPECT_THAT(documents(received(0, 2)), ElementsAre(L"1", L"2"));
}

TEST_F(ClientNewsTest, NothingWaitsForAClientThatIsTakingItsNewsWhenItLeaves) {
  hold(true);
  m_news.jobAttached(L"Laser", m_clients[0].get(), L"Laser");
  m_news.jobFailed(L"Laser", L"1", L"x", L"y");
  m_news.jobFailed(L"Laser", L"2", L"x", L"y");
  waitUntilSending(1);
  m_news.leave(m_clients[0].get());
  hold(false);
  m_news.endAll();
  EXPECT_THAT(documents(received(0, 1)), ElementsAre(L"1"));
}

}  // namespace
}  // namespace aps
