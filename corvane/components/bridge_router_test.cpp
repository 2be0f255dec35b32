#include "corvane/components/bridge_router.h"

#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"
#include "tests/support/corvane/echo_fixture.h"

namespace {

using namespace echo;

TEST_F(EchoTest, ABridgeThatLeadsNowhereRefusesRequests) {
  ConnectionPair pair;
  const auto bridge =
      pair.dialed().getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)->newInstance(0);
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the bridge leads to no print client")),
            failureOf([&] { twice(component, 1); }));
}

// A monitor's connection to a server and that server's connection to a client: the bridge goes from end to end.
class RoutedTest : public EchoTest {
 protected:
  RoutedTest() {
    // The client dials the server, as a print client does, and serves its own end.
    m_clientServer = JoinedThread([this] { m_client.dialed().serve(); });
    m_bridge = m_monitor.dialed()
                   .getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)
                   ->newInstance(0);
    // A request on the connection makes the server see the bridge.
    const auto probe = makeComponent(m_monitor.dialed(), L"Caller", L"Server");
    twice(probe, 1);
    m_router = m_monitor.accepted()->getChild(m_bridge->getIdentifier());
    auto* router = dynamic_cast<CS_BridgeRouter*>(m_router.get());
    router->onEnd([this](const CS_BridgeRouter::Ending& ending) {
      const std::lock_guard guard(m_seen.lock);
      m_routedBytes = ending.bytes;
      m_answered = ending.answered;
      m_madeHere = ending.madeHere;
      m_hasEnded = true;
      m_reason = ending.reason;
      m_seen.changed.notify_all();
    });
    router->onPass([this](const CS_BridgeRouter::Passing& passing) {
      const std::lock_guard guard(m_seen.lock);
      m_passed.push_back((passing.isReply ? "reply " : "request ") + std::to_string(passing.number) + ", " +
                         std::to_string(passing.payload.size()) + " bytes");
    });
    EXPECT_EQ(CS_BridgeRouter::Routing::kMade, router->routeTo(m_client.accepted()));
    EXPECT_EQ(CS_BridgeRouter::Routing::kGone, router->routeTo(m_client.accepted()));
    m_component = makeComponent(*m_bridge, L"Caller", L"Server");
  }
  ~RoutedTest() override {
    CS_Connection::destroy(m_client.dialedPointer(), true);
    m_clientServer.join();
  }

  CS_BridgeRouter& router() const { return *dynamic_cast<CS_BridgeRouter*>(m_router.get()); }
  std::vector<std::string> passed() {
    const std::lock_guard guard(m_seen.lock);
    return m_passed;
  }

  std::vector<std::string> m_passed;
  std::uint64_t m_routedBytes = 0;
  int m_answered = 0;
  bool m_madeHere = false;
  bool m_hasEnded = false;
  std::wstring m_reason;
  ConnectionPair m_client;
  JoinedThread m_clientServer;
  ConnectionPair m_monitor;
  CS_RCPtr<CS_Component> m_bridge;
  CS_RCPtr<CS_Component> m_router;
  CS_RCPtr<CS_Component> m_component;
};

TEST_F(RoutedTest, RequestsAndRepliesGoThroughInBothDirections) {
  EXPECT_EQ(14, twice(m_component, 7));
  std::vector<unsigned char> block(5000000);
  for (std::size_t i = 0; i < block.size(); ++i)
    block[i] = static_cast<unsigned char>(i * 7);
  unsigned sum = 0;
  for (const unsigned char byte : block)
    sum += byte;
  sendBlock(m_component, block);
  EXPECT_EQ(5000000, askInt(m_component, 3));
  EXPECT_EQ(sum, m_seen.sum);
}

TEST_F(RoutedTest, ManySmallWritesArriveInOrderAndWhole) {
  for (int i = 0; i < 5000; ++i)
    sendBlock(m_component, {static_cast<unsigned char>(i), 1});
  EXPECT_EQ(10000, askInt(m_component, 3));
}

TEST_F(RoutedTest, WhenTheClientGoesTheWaiterLearnsOfItAndLaterSendsFail) {
  EXPECT_EQ(2, twice(m_component, 1));
  m_seen.mayAnswer = false;
  std::pair<int, std::wstring> failure;
  JoinedThread waiter([&] { failure = failureOf([&] { askInt(m_component, 6, 60000); }); });
  m_seen.waitFor([&] { return m_seen.asked == 1; });
  CS_Connection::destroy(m_client.accepted(), true);
  waiter.join();
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"the other side of the bridge has gone")), failure);
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"the other side of the bridge has gone")),
            failureOf([&] { sendBlock(m_component, {1}); }));
  m_seen.waitFor([&] { return m_hasEnded; });
  EXPECT_FALSE(m_madeHere);
  EXPECT_EQ(1, m_answered);
  EXPECT_EQ(L"the connection was closed on this side", m_reason);
}

// A link may have ended a moment ago, and the thread that ended it has told nobody yet.
TEST_F(RoutedTest, WhoPassesFramesOnToALinkThatHasEndedTellsTheSender) {
  EXPECT_EQ(2, twice(m_component, 1));
  m_client.accepted()->link()->setHandler(nullptr);
  m_client.accepted()->link()->end(L"torn");
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"the other side of the bridge has gone: torn")),
            failureOf([&] { askInt(m_component, 3, 20000); }));
}

TEST_F(RoutedTest, AJobThatIsSentToAClientThatHasGoneStopsBeforeItsEnd) {
  EXPECT_EQ(2, twice(m_component, 1));
  CS_Connection::destroy(m_client.accepted(), true);
  const std::vector<unsigned char> block(65536, 1);
  int writes = 0;
  const auto failure = failureOf([&] {
    for (; writes < 10000; ++writes)
      sendBlock(m_component, block);
  });
  EXPECT_EQ(kConnectionLost, failure.first);
  EXPECT_LT(writes, 10000);
}

TEST_F(RoutedTest, WhenTheMonitorGoesTheClientsComponentIsReleased) {
  EXPECT_EQ(2, twice(m_component, 1));
  CS_Connection::destroy(m_monitor.dialedPointer(), true);
  m_seen.waitFor([&] { return m_seen.released >= 101 && m_hasEnded; });
  EXPECT_GT(m_routedBytes, 0u);
  EXPECT_TRUE(m_madeHere);
  EXPECT_EQ(1, m_answered);
  EXPECT_EQ(L"", m_reason);
}

TEST_F(RoutedTest, SaysWhichRequestTheOtherSideHasRepliedToLast) {
  EXPECT_EQ(2, twice(m_component, 1));
  sendBlock(m_component, {1, 2, 3});
  EXPECT_EQ(3, askInt(m_component, 3));
  sendBlock(m_component, {1});
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the tray is empty")),
            failureOf([&] { askInt(m_component, 4); }));
  CS_Connection::destroy(m_monitor.dialedPointer(), true);
  m_seen.waitFor([&] { return m_hasEnded; });
  EXPECT_EQ(3, m_answered);
}

TEST_F(RoutedTest, ShowsEachRequestOfAnotherNumberThanTheOneBeforeAndRepliesToTheLast) {
  twice(m_component, 1);
  twice(m_component, 2);
  sendBlock(m_component, {1, 2, 3});
  sendBlock(m_component, {1, 2, 3, 4});
  EXPECT_EQ(7, askInt(m_component, 3));
  EXPECT_EQ((std::vector<std::string>{"request 1, 5 bytes", "reply 1, 5 bytes", "reply 1, 5 bytes",
                                      "request 2, 8 bytes", "request 3, 0 bytes", "reply 3, 5 bytes"}),
            passed());
}

TEST_F(RoutedTest, ThatIsCutTellsBothSidesWhyAndEndsOnce) {
  twice(m_component, 1);
  const std::uint64_t before = router().bytesPassed();
  twice(m_component, 1);
  EXPECT_EQ(before + 5, router().bytesPassed());
  EXPECT_TRUE(router().cut(L"somebody wants it"));
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"the other side of the bridge has gone: somebody wants it")),
            failureOf([&] { twice(m_component, 1); }));
  m_seen.waitFor([&] { return m_seen.released >= 101 && m_hasEnded; });
  EXPECT_EQ(L"somebody wants it", m_reason);
  EXPECT_FALSE(m_madeHere);
  EXPECT_EQ(1, m_answered);
  EXPECT_FALSE(router().cut(L"again"));
  EXPECT_EQ(0u, router().bytesPassed());
}

// A request in the form in which it travels, behind the frames that are there already.
void append(std::vector<unsigned char>& frames, FrameHeader header, const ValueWriter& values) {
  header.length = static_cast<std::uint32_t>(values.size());
  const EncodedHeader encoded = encodeHeader(header);
  frames.insert(frames.end(), encoded.begin(), encoded.end());
  values.forEachPiece([&](ValueWriter::Piece piece) { frames.insert(frames.end(), piece.begin(), piece.end()); });
}

// A sign of life between two frames is of no bridge and ends no run of frames.
TEST_F(RoutedTest, FramesThatArriveTogetherEachGoWhereTheyBelong) {
  const CS_RCPtr<CS_Component> otherBridge =
      m_monitor.dialed().getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)->newInstance(0);
  const auto onConnection = makeComponent(m_monitor.dialed(), L"Caller", L"Server");
  twice(onConnection, 1);
  const CS_RCPtr<CS_Component> router = m_monitor.accepted()->getChild(otherBridge->getIdentifier());
  ASSERT_EQ(CS_BridgeRouter::Routing::kMade, dynamic_cast<CS_BridgeRouter&>(*router).routeTo(m_client.accepted()));
  const auto onOther = makeComponent(*otherBridge, L"Caller", L"Server");
  EXPECT_EQ(2, twice(onOther, 1));
  EXPECT_EQ(2, twice(m_component, 1));

  Link& link = *m_monitor.dialed().link();
  std::vector<unsigned char> together;
  std::vector<std::unique_ptr<Link::Pending>> pending;
  int value = 0;
  for (const auto& component : {m_component, m_component, onOther, m_component, onConnection, onOther, m_component}) {
    FrameHeader header;
    header.number = 1;
    header.flags = kFlagWantsReply;
    header.bridge = component->getChannel(true)->bridge();
    header.component = component->getIdentifier();
    pending.push_back(std::make_unique<Link::Pending>(link, header.bridge));
    header.correlation = pending.back()->correlation();
    ValueWriter values;
    values.writeInt(++value);
    append(together, header, values);
    FrameHeader beat;
    beat.kind = FrameKind::kBeat;
    append(together, beat, {});
  }
  link.sendFrames(together);
  value = 0;
  for (const auto& each : pending)
    EXPECT_EQ(2 * ++value, ValueReader(each->wait(after(20000))).readInt());
}

TEST_F(RoutedTest, WhatArrivesTogetherWithTheReleaseOfItsBridgeIsPassedOnBeforeIt) {
  EXPECT_EQ(2, twice(m_component, 1));
  const std::vector<unsigned char> block(40000, 1);
  FrameHeader header;
  header.number = 2;
  header.bridge = m_bridge->getIdentifier();
  header.component = m_component->getIdentifier();
  header.correlation = 99999;
  ValueWriter values;
  values.writeBytes(block.data(), static_cast<int>(block.size()));
  std::vector<unsigned char> together;
  append(together, header, values);
  FrameHeader release;
  release.kind = FrameKind::kRelease;
  release.component = m_bridge->getIdentifier();
  ValueWriter reason;
  reason.writeText(L"done");
  append(together, release, reason);
  m_monitor.dialed().link()->sendFrames(together);
  m_seen.waitFor([&] { return m_hasEnded; });
  EXPECT_GT(m_routedBytes, block.size());
  EXPECT_EQ(L"done", m_reason);
}

TEST_F(RoutedTest, ARouteEndsOnce) {
  auto& router = dynamic_cast<CS_BridgeRouter&>(*m_router);
  router.releasedByPeer(L"first");
  EXPECT_TRUE(m_hasEnded);
  m_hasEnded = false;
  router.releasedByPeer(L"second");
  router.release();
  EXPECT_FALSE(m_hasEnded);
  EXPECT_EQ(L"first", m_reason);
}

TEST_F(EchoTest, ABridgeContinuesOnAConnectionWithinThisProcess) {
  ConnectionPair monitor;
  const auto [one, other] = CS_Connection::makePair();
  JoinedThread oneEnd([one = one] { one->serve(); }, [one = one] { CS_Connection::destroy(one, true); });
  JoinedThread otherEnd([other = other] { other->serve(); }, [other = other] { CS_Connection::destroy(other, true); });
  const auto bridge =
      monitor.dialed().getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)->newInstance(0);
  twice(makeComponent(monitor.dialed(), L"Caller", L"Server"), 1);
  const CS_RCPtr<CS_Component> made = monitor.accepted()->getChild(bridge->getIdentifier());
  auto* const router = dynamic_cast<CS_BridgeRouter*>(made.get());
  ASSERT_NE(router, nullptr);
  EXPECT_EQ(router->continuedAs(), 0u);
  ASSERT_EQ(router->routeTo(one), CS_BridgeRouter::Routing::kMade);
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  EXPECT_EQ(14, twice(component, 7));
  sendBlock(component, std::vector<unsigned char>(3000000, 1));
  EXPECT_EQ(3000000, askInt(component, 3));
  const auto continued = other->getChild(router->continuedAs());
  ASSERT_TRUE(continued);
  EXPECT_EQ(continued->getDataType(), 2);
  CS_Connection::destroy(other, true);
  EXPECT_EQ(kConnectionLost, failureOf([&] { twice(component, 1); }).first);
  EXPECT_EQ(router->continuedAs(), 0u);
}

}  // namespace
