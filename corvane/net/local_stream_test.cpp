#include "corvane/net/local_stream.h"

#include "corvane/records/messages.h"
#include "tests/support/joined_thread.h"

#include <gtest/gtest.h>
#include <string>

namespace corvane {
namespace {

Stream::Piece pieceOf(const std::string& text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

void send(Stream& stream, const std::string& text) {
  const Stream::Piece piece = pieceOf(text);
  stream.send({&piece, 1});
}

// "nothing" when nothing came until now.
std::string received(Stream& stream, std::size_t most = 100) {
  std::vector<unsigned char> buffer(most);
  const auto count = stream.receive(buffer, std::chrono::steady_clock::now());
  return count ? std::string(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(*count)) : "nothing";
}

TEST(LocalStreamTest, WhatOneEndSendsTheOtherReceivesInOrderAndBothWays) {
  auto [one, other] = makeLocalStreams();
  EXPECT_EQ(received(*other), "nothing");
  const std::string hello = "hello, ", world = "world";
  const std::array pieces = {pieceOf(hello), pieceOf(world)};
  one->send(pieces);
  send(*other, "answer");
  EXPECT_EQ(received(*other, 8), "hello, w");
  EXPECT_EQ(received(*other), "orld");
  EXPECT_EQ(received(*one), "answer");
  EXPECT_EQ(received(*one), "nothing");
}

TEST(LocalStreamTest, ASenderWaitsForAReceiverAndEveryByteArrives) {
  auto [one, other] = makeLocalStreams();
  std::string all;
  for (std::size_t i = 0; all.size() < 3 * kLocalStreamBytes + 17; ++i)
    all += std::to_string(i);
  JoinedThread sender([&one = one, &all] { send(*one, all); }, [&other = other] { other->shutdown(); });
  std::string came;
  std::vector<unsigned char> buffer(1000);
  while (came.size() < all.size()) {
    const auto count = other->receive(buffer, std::nullopt);
    ASSERT_TRUE(count && *count > 0);
    came.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(*count));
  }
  sender.join();
  EXPECT_EQ(came == all, true);
}

TEST(LocalStreamTest, WhatWasSentBeforeTheEndStillArrivesAndThenTheEnd) {
  auto [one, other] = makeLocalStreams();
  send(*one, "last words");
  EXPECT_FALSE(other->peerHasClosed());
  one->close();
  EXPECT_TRUE(other->peerHasClosed());
  EXPECT_EQ(received(*other), "last words");
  EXPECT_EQ(received(*other), "");
  EXPECT_EQ(received(*one), "");
}

TEST(LocalStreamTest, ASenderThatWaitsFailsWhenEitherEndHasGone) {
  for (const bool isOwn : {true, false}) {
    auto [one, other] = makeLocalStreams();
    send(*one, std::string(kLocalStreamBytes, 'x'));
    EXPECT_FALSE(one->hasRoom());
    JoinedThread ender([&end = isOwn ? *one : *other] { end.shutdown(); });
    try {
      send(*one, "x");
      ADD_FAILURE() << "sent to nobody";
    } catch (const CS_Exception& failure) {
      EXPECT_EQ(failure.number(), kConnectionLost);
    }
    EXPECT_TRUE(one->hasRoom());
  }
}

}  // namespace
}  // namespace corvane
