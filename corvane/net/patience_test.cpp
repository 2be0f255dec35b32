#include "corvane/net/patience.h"

#include "corvane/base/limits.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <gtest/gtest.h>

namespace {

using namespace corvane;
using namespace std::chrono_literals;

TEST(SendAllowance, IsTwoMinutesForEveryQuarterOfAMebibyte) {
  EXPECT_EQ(120s, Patience().send);
  EXPECT_EQ(256u * 1024, kSendWindow);
}

TEST(SendAllowance, WaitsOfSeveralSendsAddUp) {
  SendAllowance allowance(1000ms);
  allowance.waited(400ms);
  allowance.took(1);
  EXPECT_EQ(600ms, allowance.left());
  allowance.waited(600ms);
  EXPECT_EQ(0ms, allowance.left());
  allowance.waited(1h);
  EXPECT_EQ(0ms, allowance.left());
}

TEST(SendAllowance, WhatIsLeftIsRoundedUpSoThatAWaitUsesItUp) {
  SendAllowance allowance(1000ms);
  allowance.waited(999999us);
  EXPECT_EQ(1ms, allowance.left());
}

TEST(SendAllowance, ThatManyBytesStartTheTimeAgainAndOneByteLessDoesNot) {
  SendAllowance allowance(1000ms);
  allowance.waited(900ms);
  allowance.took(kSendWindow - 1);
  EXPECT_EQ(1u, allowance.window());
  EXPECT_EQ(100ms, allowance.left());
  allowance.took(1);
  EXPECT_EQ(kSendWindow, allowance.window());
  EXPECT_EQ(1000ms, allowance.left());
  allowance.waited(900ms);
  allowance.took(5 * kSendWindow);
  EXPECT_EQ(kSendWindow, allowance.window());
  EXPECT_EQ(1000ms, allowance.left());
}

TEST(SendAllowance, SaysHowSlowThePeerWas) {
  SendAllowance allowance(120000ms);
  allowance.took(12000);
  try {
    allowance.refuse();
  } catch (const CS_Exception& exception) {
    EXPECT_EQ(kConnectionLost, exception.number());
    EXPECT_STREQ(L"the other side takes no more data: 12000 bytes in 120 seconds of waiting", exception.detail());
  }
}

TEST(Patience, CanBeShortenedAsAWhole) {
  const Patience fast = Patience().faster(100);
  EXPECT_EQ(1200ms, fast.send);
  EXPECT_EQ(50ms, fast.beat);
  EXPECT_EQ(250ms, fast.silence);
}

TEST(Patience, IsWrittenAsAPersonSaysIt) {
  EXPECT_EQ(L"25 seconds", durationText(25s));
  EXPECT_EQ(L"1 second", durationText(1s));
  EXPECT_EQ(L"1500 ms", durationText(1500ms));
}

}  // namespace
