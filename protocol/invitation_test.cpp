#include "protocol/invitation.h"

#include "tests/support/protocol/wire_bytes.h"

#include <gtest/gtest.h>

namespace protocol {
namespace {

TEST(Redeem, HasItsNumberAndItsBytesOnTheWire) {
  EXPECT_EQ(static_cast<int>(Redeem::kNumber), 25);
  EXPECT_EQ(tests::hexOf(Redeem()), tests::hex(""));
  EXPECT_EQ(tests::hexOf(Redeem::Answer{true, L"not sent", L"K"}), tests::hex("62 01 74 01000000 4b00"));
  EXPECT_EQ(tests::hexOf(Redeem::Answer{false, L"W", L"not sent"}), tests::hex("62 00 74 01000000 5700"));
}

TEST(Redeem, AndItsAnswerComeBack) {
  const Redeem::Answer given = tests::readBack(Redeem::Answer{true, {}, L"K"});
  EXPECT_TRUE(given.isGiven);
  EXPECT_EQ(given.key, L"K");
  const Redeem::Answer refused = tests::readBack(Redeem::Answer{false, L"W", {}});
  EXPECT_FALSE(refused.isGiven);
  EXPECT_EQ(refused.refusal, L"W");
  EXPECT_EQ(refused.key, L"");
}

}  // namespace
}  // namespace protocol
