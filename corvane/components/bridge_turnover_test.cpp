#include "corvane/components/bridge_router.h"
#include "corvane/wire/link.h"
#include "tests/support/corvane/echo_fixture.h"
#include "tests/support/heap_in_use.h"

#include <memory>

namespace {

using namespace echo;

CS_RCPtr<CS_Component> makeBridge(CS_Connection& connection) {
  return connection.getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)->newInstance(0);
}

// A server between monitors and one client, as aps is, and many jobs one after the other: whatever way they end, the
// connections that stay hold nothing of them.
class TurnoverTest : public EchoTest {
 protected:
  TurnoverTest() : m_clientServer([this] { m_client.dialed().serve(); }) {}
  ~TurnoverTest() override {
    CS_Connection::destroy(m_client.dialedPointer(), true);
    m_clientServer.join();
  }

  // A component on a bridge that leads through the server to the client.
  CS_RCPtr<CS_Component> beginJob(ConnectionPair& monitor, const CS_RCPtr<CS_Component>& bridge) {
    // A request on the connection makes the server see the bridge.
    twice(probe(monitor), 1);
    const CS_RCPtr<CS_Component> router = monitor.accepted()->getChild(bridge->getIdentifier());
    EXPECT_EQ(CS_BridgeRouter::Routing::kMade, dynamic_cast<CS_BridgeRouter&>(*router).routeTo(m_client.accepted()));
    auto component = makeComponent(*bridge, L"Caller", L"Server");
    EXPECT_EQ(14, twice(component, 7));
    return component;
  }

  CS_RCPtr<CS_Component> probe(ConnectionPair& monitor) {
    if (m_probed != &monitor) m_probe = makeComponent(monitor.dialed(), L"Caller", L"Server");
    m_probed = &monitor;
    return m_probe;
  }

  // The client has let every bridge go that was announced to it, and their threads have ended.
  void waitForClient() {
    // What it answers now comes after the releases.
    CS_RCPtr<CS_Component> asked = m_client.accepted()->getClassFactory(L"Caller", L"Server", true)->newInstance(0);
    asked->getChannel(true)->startSending();
    asked->getChannel(true)->startReceiving();
    twice(asked, 1);
    asked->releasePeer();
    m_client.accepted()->removeChild(asked.get());
    EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  }

  ConnectionPair m_client;  // dialed by the client, as a print client does
  JoinedThread m_clientServer;
  ConnectionPair* m_probed = nullptr;
  CS_RCPtr<CS_Component> m_probe;
};

TEST_F(TurnoverTest, ThousandsOfBridgesThatTheMonitorLetsGoLeaveNothingOnTheClientsConnection) {
  ConnectionPair monitor;
  std::size_t early = 0;
  for (int job = 0; job < 1500; ++job) {
    if (job == 500) {
      waitForClient();
      early = heapInUse();
    }
    const CS_RCPtr<CS_Component> bridge = makeBridge(monitor.dialed());
    ASSERT_TRUE(bridge) << "job " << job;
    const auto component = beginJob(monitor, bridge);
    bridge->getChannel(true)->startSending();
    ASSERT_TRUE(bridge->releasePeer());
    monitor.dialed().removeChild(bridge.get());
    bridge->release();
  }
  twice(probe(monitor), 1);
  EXPECT_EQ(1u, monitor.dialed().childCount());
  EXPECT_EQ(1u, monitor.accepted()->childCount());
  EXPECT_EQ(0u, m_client.accepted()->childCount());
  waitForClient();
  EXPECT_LE(m_client.dialed().childCount(), 1u);
  // 1,000 jobs later: less than 16 bytes for each.
  EXPECT_LT(heapInUse(), early + 16000);
}

TEST_F(TurnoverTest, JobsWhoseConnectionsEndLeaveNothingOnTheClientsConnection) {
  for (int job = 0; job < 50; ++job) {
    ConnectionPair monitor;
    m_probed = nullptr;
    beginJob(monitor, makeBridge(monitor.dialed()));
    EXPECT_EQ(1u, m_client.accepted()->childCount());
    CS_Connection::destroy(monitor.dialedPointer(), true);
    monitor.join();
    EXPECT_EQ(0u, m_client.accepted()->childCount()) << "job " << job;
  }
  waitForClient();
  EXPECT_LE(m_client.dialed().childCount(), 1u);
}

TEST_F(TurnoverTest, BridgesThatTheClientLetsGoLeaveNothingOnTheMonitorsConnection) {
  ConnectionPair monitor;
  for (int job = 0; job < 600; ++job) {
    const auto component = beginJob(monitor, makeBridge(monitor.dialed()));
    ASSERT_TRUE(component) << "job " << job;
    // The client lets the bridge go, by the identifier that the server has given it.
    FrameHeader release;
    release.kind = FrameKind::kRelease;
    release.component = m_client.accepted()->nextIdentifier() - 2;
    const CS_RCPtr<CS_Component> bridge = m_client.dialed().getChild(release.component);
    ASSERT_TRUE(bridge);
    m_client.dialed().link()->sendText(release, L"the tray is full");
    m_client.dialed().removeChild(bridge.get());
    bridge->release();
    EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"the tray is full")), failureOf([&] {
                for (;;)
                  twice(component, 1);
              }))
        << "job " << job;
  }
  waitForClient();
  twice(probe(monitor), 1);
  EXPECT_EQ(1u, monitor.dialed().childCount());
  EXPECT_EQ(1u, monitor.accepted()->childCount());
  EXPECT_EQ(0u, m_client.accepted()->childCount());
}

TEST_F(TurnoverTest, AClientThatGoesLeavesNothingOnTheMonitorsConnectionOfTheServer) {
  ConnectionPair monitor;
  beginJob(monitor, makeBridge(monitor.dialed()));
  EXPECT_EQ(2u, monitor.accepted()->childCount());
  CS_Connection::destroy(m_client.accepted(), true);
  EXPECT_EQ(1u, monitor.accepted()->childCount());
}

TEST_F(TurnoverTest, OneConnectionCannotTakeAllThePlacesOfAClient) {
  ConnectionPair monitor;
  std::vector<CS_RCPtr<CS_Component>> bridges;
  const auto route = [&] {
    bridges.push_back(makeBridge(monitor.dialed()));
    twice(probe(monitor), 1);
    const CS_RCPtr<CS_Component> router = monitor.accepted()->getChild(bridges.back()->getIdentifier());
    return dynamic_cast<CS_BridgeRouter&>(*router).routeTo(m_client.accepted());
  };
  for (int i = 0; i < kMaxRoutes; ++i)
    EXPECT_EQ(CS_BridgeRouter::Routing::kMade, route());
  EXPECT_EQ(CS_BridgeRouter::Routing::kFull, route());
  EXPECT_EQ(static_cast<std::size_t>(kMaxRoutes), m_client.accepted()->childCount());
  bridges.front()->getChannel(true)->startSending();
  ASSERT_TRUE(bridges.front()->releasePeer());
  EXPECT_EQ(CS_BridgeRouter::Routing::kMade, route());
}

TEST_F(TurnoverTest, AClientWhoseConnectionHasAllItsComponentsIsFullAndNotGone) {
  ConnectionPair monitor;
  std::vector<CS_RCPtr<CS_Component>> others;
  while (const auto other = makeComponent(*m_client.accepted(), L"Caller", L"Server"))
    others.push_back(other);
  EXPECT_EQ(CS_Component::kMaxChildren, others.size());
  const auto bridge = makeBridge(monitor.dialed());
  twice(probe(monitor), 1);
  const CS_RCPtr<CS_Component> router = monitor.accepted()->getChild(bridge->getIdentifier());
  const auto routeTo = [&] { return dynamic_cast<CS_BridgeRouter&>(*router).routeTo(m_client.accepted()); };
  for (int i = 0; i <= kMaxRoutes; ++i)
    EXPECT_EQ(CS_BridgeRouter::Routing::kFull, routeTo());
  m_client.accepted()->removeChild(others.front().get());
  EXPECT_EQ(CS_BridgeRouter::Routing::kMade, routeTo());
}

}  // namespace
