#include "corvane/net/local_stream.h"
#include "tests/support/corvane/link_fixture.h"
#include "tests/support/joined_thread.h"

#include <fcntl.h>
#include <poll.h>

namespace {

using namespace std::chrono_literals;
using corvane::FrameHeader;
using corvane::FrameKind;
using corvane::Link;

constexpr auto kIdle = 10ms;

class LinkParkingTest : public LinkTest {
 protected:
  LinkParkingTest() { m_link.setHandler(&m_taker); }

  void park() { ASSERT_EQ(std::nullopt, m_link.serveUntilIdle(kIdle)); }
  // Waits until the parked link is to be served.
  bool awaitReady() {
    pollfd handle{m_link.idleHandle().value(), POLLIN, 0};
    return ::poll(&handle, 1, 20000) == 1;
  }
  bool isReady() {
    pollfd handle{m_link.idleHandle().value(), POLLIN, 0};
    return ::poll(&handle, 1, 0) == 1;
  }
  static std::vector<unsigned char> beat() {
    FrameHeader header;
    header.kind = FrameKind::kBeat;
    return frameOf(header, {});
  }
};

TEST_F(LinkParkingTest, WhatComesToAParkedLinkIsServedByTheNextThread) {
  park();
  EXPECT_FALSE(isReady());
  say(requestFrame(7));
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_EQ(0, m_taker.frames()) << "it is for the thread that serves";
  park();
  EXPECT_EQ(1, m_taker.frames());
  EXPECT_EQ(1, m_taker.batches());
  m_peer.shutdown();
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_EQ(corvane::kClosedInOrder, m_link.serveUntilIdle(kIdle));
}

TEST_F(LinkParkingTest, SignsOfLifeAreTakenAndEverythingBehindThemIsLeft) {
  park();
  const auto before = m_link.lastHeard();
  for (int i = 0; i < 3; ++i)
    say(beat());
  while (m_taker.frames() < 3) {
    ASSERT_TRUE(awaitReady());
    ASSERT_TRUE(m_link.isStillIdle());
  }
  EXPECT_FALSE(isReady());
  EXPECT_TRUE(m_link.isStillIdle()) << "nothing has come since";
  EXPECT_LT(before, m_link.lastHeard());
  EXPECT_EQ(0, m_taker.batches()) << "the end of one may send";
  std::vector<unsigned char> both = beat();
  const auto request = requestFrame(7);
  both.insert(both.end(), request.begin(), request.end());
  say(both);
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_EQ(4, m_taker.frames());
  park();
  EXPECT_EQ(5, m_taker.frames());
}

TEST_F(LinkParkingTest, HalfASignOfLifeIsForAThread) {
  park();
  const auto bytes = beat();
  say(std::span(bytes).first(7));
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  say(std::span(bytes).subspan(7));
  park();
  EXPECT_EQ(1, m_taker.frames());
}

TEST_F(LinkParkingTest, WhoWaitsForAReplyLeavesTheLinkToTheThreadThatServesIt) {
  m_taker.take = [&](const corvane::Frame& frame) { m_link.complete(frame); };
  park();
  Link::Pending pending(m_link, 3);
  EXPECT_EQ(-corvane::kReplyTimedOut, resultOf(pending, 1));
  Link::Pending another(m_link, 3);
  int result = 0;
  JoinedThread waiter([&] { result = resultOf(another); });
  say(replyTo(another.correlation(), 3, 42));
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_EQ(0, m_taker.frames());
  park();
  waiter.join();
  EXPECT_EQ(42, result);
}

TEST_F(LinkParkingTest, AnEndOnThisSideIsSeenAtTheHandleWhichStaysOpenUntilItWasServed) {
  park();
  const int handle = m_link.idleHandle().value();
  m_link.end(L"it is late");
  EXPECT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_NE(-1, ::fcntl(handle, F_GETFD));
  EXPECT_EQ(L"it is late", m_link.serveUntilIdle(kIdle));
  EXPECT_EQ(-1, ::fcntl(handle, F_GETFD));
}

TEST_F(LinkParkingTest, AFailureThatIsSeenWhileItIsParkedIsTheReasonOfTheEnd) {
  park();
  const linger atOnce{1, 0};
  ::setsockopt(corvane::native(m_pair.acceptedHandle), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  m_peer.close();
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_EQ(corvane::networkErrorText(ECONNRESET), m_link.serveUntilIdle(kIdle));
}

TEST_F(LinkParkingTest, BytesThatAreNoFrameEndIt) {
  park();
  say(std::vector<unsigned char>(20));
  ASSERT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_EQ(L"frame kind 0 does not exist", m_link.serveUntilIdle(kIdle));
}

TEST_F(LinkParkingTest, IsOverdueOnceNothingAtAllHasComeForAsLongAsBeatsAreExpected) {
  m_link.expectBeats(200ms);
  ASSERT_EQ(std::nullopt, m_link.serveUntilIdle(1h)) << "it is parked well before the silence is over";
  EXPECT_FALSE(m_link.isOverdue());
  while (!m_link.isOverdue())
    std::this_thread::sleep_for(1ms);
  say(beat());
  ASSERT_TRUE(awaitReady());
  ASSERT_EQ(std::nullopt, m_link.serveUntilIdle(1h)) << "what came in the last moment counts";
  EXPECT_FALSE(m_link.isOverdue());
  while (!m_link.isOverdue())
    std::this_thread::sleep_for(1ms);
  EXPECT_TRUE(m_link.isStillIdle()) << "that alone ends nothing";
  EXPECT_EQ(L"nothing was heard from the other side for 200 ms", m_link.serveUntilIdle(1h));
}

TEST_F(LinkParkingTest, WithoutAnAgreementSilenceIsNeverTooLong) {
  park();
  EXPECT_FALSE(m_link.isOverdue());
}

TEST_F(LinkParkingTest, IsSentToWhileItIsParkedAndASendThatFailsEndsIt) {
  park();
  FrameHeader header;
  header.bridge = 9;
  m_link.send(header, corvane::ValueWriter());
  EXPECT_EQ(20u, receiveAll(m_peer, 20).size());
  m_peer.close();
  try {
    for (int i = 0; i < 1000; ++i)
      m_link.send(header, corvane::ValueWriter());
    FAIL() << "nobody receives this";
  } catch (const CS_Exception& failure) {
    EXPECT_EQ(corvane::kConnectionLost, failure.number());
  }
  EXPECT_TRUE(awaitReady());
  EXPECT_FALSE(m_link.isStillIdle());
  EXPECT_TRUE(m_link.serveUntilIdle(kIdle).has_value());
}

TEST_F(LinkParkingTest, AStreamWithoutAHandleIsServedUntilItsEnd) {
  auto [one, other] = corvane::makeLocalStreams();
  Link link(std::move(one));
  Link peer(std::move(other));
  link.setHandler(&m_taker);
  std::optional<std::wstring> reason;
  JoinedThread serving([&] { reason = link.serveUntilIdle(1ms); });
  std::this_thread::sleep_for(50ms);
  peer.send({}, corvane::ValueWriter());
  EXPECT_TRUE(m_taker.waitForFrames(1));
  peer.end(L"done");
  serving.join();
  EXPECT_EQ(corvane::kClosedInOrder, reason);
}

}  // namespace
