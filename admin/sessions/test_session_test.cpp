#include "admin/sessions/test_session.h"

#include "admin/base/failure.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

protocol::ServerStatus factsWith(int number, bool isConnected) {
  protocol::ListedSession session;
  session.number = number;
  session.isConnected = isConnected;
  protocol::ServerStatus facts;
  facts.sessions = {session};
  return facts;
}

TEST(TestSessionNumber, IsTheFirstThatNobodyUses) {
  EXPECT_EQ(freeTestSession({}, {}), kFirstTestSession);
  EXPECT_EQ(freeTestSession(factsWith(kFirstTestSession, true), {}), kFirstTestSession + 1);
  EXPECT_EQ(freeTestSession({}, {L"CPP900000001"}), kFirstTestSession + 1);
}

TEST(TestSessionNumber, OfAnEarlierTestIsUsedAgain) {
  EXPECT_EQ(freeTestSession(factsWith(kFirstTestSession, false), {}), kFirstTestSession);
}

TEST(TestSessionNumber, IsNoUsersSession) {
  EXPECT_TRUE(isTestSession(kFirstTestSession));
  EXPECT_TRUE(isTestSession(kLastTestSession));
  EXPECT_FALSE(isTestSession(kFirstTestSession - 1));
  EXPECT_FALSE(isTestSession(kLastTestSession + 1));
}

TEST(TestSessionNumber, ThatCannotBeHadSaysWhy) {
  std::vector<std::wstring> ports;
  for (int number = kFirstTestSession; number <= kLastTestSession; ++number)
    ports.push_back(L"CPP" + std::to_wstring(number));
  EXPECT_THROW(freeTestSession({}, ports), Failure);
}

TEST(Arrival, HoldsTheBytesOfTheLastDocument) {
  Arrival arrival;
  const unsigned char bytes[] = {'a', 'b', 'c'};
  arrival.begin();
  arrival.append(bytes, 3);
  EXPECT_FALSE(arrival.wait(0));
  arrival.begin();
  arrival.append(bytes, 2);
  arrival.end();
  EXPECT_TRUE(arrival.wait(0));
  EXPECT_EQ(arrival.bytes(), "ab");
}

}  // namespace
}  // namespace admin
