#include "corvane/connection.h"

#include "corvane/bridge_router.h"
#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/link.h"
#include "corvane/message_numbers.h"
#include "corvane/out_request.h"
#include "corvane/program_monitor_c.h"
#include "corvane/simple_class.h"
#include "tests/support/connection_pair.h"

#include <array>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

namespace {

using namespace corvane;

// What the components of the tests have seen; one per test.
struct Seen {
  std::mutex lock;
  std::condition_variable changed;
  std::size_t bytes = 0;
  std::size_t largestPiece = 0;
  unsigned sum = 0;
  int released = 0;
  bool mayAnswer = true;
  int asked = 0;

  void waitFor(const std::function<bool()>& condition) {
    std::unique_lock guard(lock);
    ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(20), condition));
  }
};

Seen* seen = nullptr;

// The dialing side's half of the pair.
class Caller : public CS_Component {
 public:
  bool release() override {
    const std::lock_guard guard(seen->lock);
    ++seen->released;
    seen->changed.notify_all();
    return CS_Component::release();
  }
};

// The serving side's half: 1 doubles an integer, 2 takes a block without a reply, 3 says how much came, 4 throws,
// 5 answers with a long text, 6 answers only when it may.
class Server : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    switch (request.number()) {
      case 1:
        request.reply().writeInt(2 * request.readInt());
        request.sendReply();
        return true;
      case 2:
        for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece()) {
          const std::lock_guard guard(seen->lock);
          seen->bytes += piece.size();
          seen->largestPiece = std::max(seen->largestPiece, piece.size());
          for (const unsigned char byte : piece)
            seen->sum += byte;
        }
        return true;
      case 3:
        request.reply().writeInt(static_cast<int>(seen->bytes));
        request.sendReply();
        return true;
      case 4:
        throw CS_Exception(kMissingObject, L"the tray is empty");
      case 5:
        for (int i = 0; i < 10; ++i)
          request.reply().writeText(std::wstring(20000, static_cast<wchar_t>(L'a' + i)).c_str());
        request.sendReply();
        return true;
      case 6: {
        std::unique_lock guard(seen->lock);
        ++seen->asked;
        seen->changed.notify_all();
        seen->changed.wait(guard, [] { return seen->mayAnswer; });
        request.reply().writeInt(6);
        request.sendReply();
        return true;
      }
      default:
        return false;
    }
  }
  bool release() override {
    const std::lock_guard guard(seen->lock);
    seen->released += 100;
    seen->changed.notify_all();
    return CS_Component::release();
  }
};

class ConnectionTest : public ::testing::Test {
 protected:
  ConnectionTest() {
    seen = &m_seen;
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(L"Caller", new SimpleClass<Caller>(CS_Version(4, 0, 1, 0)));
    server->registerClass(L"Server", new SimpleClass<Server>(CS_Version(4, 0, 1, 0)));
    server->registerClass(L"Secret", new SimpleClass<Server>(CS_Version(4, 0, 1, 0)));
    server->offerClass(L"Server");
    server->offerClass(CS_Bridge::m_className);
    server->offerClass(CS_BridgeRouter::getClassName());
  }

  static int twice(const CS_RCPtr<CS_Component>& component, int value, unsigned milliseconds = 20000) {
    CS_OutRequest request(component, 1);
    request.writeInt(value);
    CS_InRequest reply(request);
    request.execute(reply, milliseconds);
    return reply.readInt();
  }

  static void sendBlock(const CS_RCPtr<CS_Component>& component, const std::vector<unsigned char>& block) {
    CS_OutRequest request(component, 2);
    request.write(block.data(), static_cast<int>(block.size()));
    request.execute();
  }

  static int askInt(const CS_RCPtr<CS_Component>& component, int number, unsigned milliseconds = 20000) {
    CS_OutRequest request(component, number);
    CS_InRequest reply(request);
    request.execute(reply, milliseconds);
    return reply.readInt();
  }

  template <class Action>
  static std::pair<int, std::wstring> failureOf(Action&& action) {
    try {
      action();
    } catch (const CS_Exception& exception) {
      return {exception.number(), exception.detail()};
    }
    return {0, L"nothing was thrown"};
  }

  Seen m_seen;
};

TEST_F(ConnectionTest, AReplyBringsTheValuesBack) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  ASSERT_TRUE(component);
  EXPECT_EQ(42, twice(component, 21));
  EXPECT_EQ(-2, twice(component, -1));
}

TEST_F(ConnectionTest, IdentifiersAreOddOnTheDialingSideAndEvenOnTheOther) {
  ConnectionPair pair;
  EXPECT_EQ(1u, pair.dialed().nextIdentifier());
  EXPECT_EQ(3u, pair.dialed().nextIdentifier());
  EXPECT_EQ(2u, pair.accepted()->nextIdentifier());
}

TEST_F(ConnectionTest, ALongReplyArrivesInSeveralFrames) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  CS_OutRequest request(component, 5);
  CS_InRequest reply(request);
  request.execute(reply, 20000);
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(std::wstring(20000, static_cast<wchar_t>(L'a' + i)), reply.readUTF());
}

TEST_F(ConnectionTest, AComponentThatFailsAnswersWithItsReason) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the tray is empty")),
            failureOf([&] { askInt(component, 4); }));
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the component serves no request 99")),
            failureOf([&] { askInt(component, 99); }));
  EXPECT_EQ(8, twice(component, 4));
}

TEST_F(ConnectionTest, AClassThatIsNotOfferedCannotBeCreatedByThePeer) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Secret");
  ASSERT_TRUE(component);
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"this side offers no components of the class Secret")),
            failureOf([&] { twice(component, 1); }));
}

TEST_F(ConnectionTest, AFactoryNeedsALocalClassAndALivingConnection) {
  ConnectionPair pair;
  EXPECT_FALSE(pair.dialed().getClassFactory(L"Unknown", L"Server", true));
  EXPECT_FALSE(pair.dialed().getClassFactory(nullptr, L"Server", true));
  CS_Connection::destroy(pair.dialedPointer(), true);
  EXPECT_FALSE(pair.dialed().getClassFactory(L"Caller", L"Server", true));
}

TEST_F(ConnectionTest, AFactoryRefusesAClassThatThePeerLacksOrHasInAnotherMajorVersion) {
  ConnectionPair pair;
  CS_ClassVersionMap versions;
  EXPECT_FALSE(pair.dialed().setVersionsOfClassesInPeerProcess(versions, 1));
  versions.set(L"Server", CS_Version(5, 0, 0, 0));
  EXPECT_FALSE(pair.dialed().setVersionsOfClassesInPeerProcess(versions, 2));
  EXPECT_TRUE(pair.dialed().setVersionsOfClassesInPeerProcess(versions, 1));
  EXPECT_FALSE(pair.dialed().getClassFactory(L"Caller", L"Server", true));
  EXPECT_FALSE(pair.dialed().getClassFactory(L"Caller", L"Missing", true));
  versions.set(L"Server", CS_Version(4, 9, 0, 0));
  EXPECT_TRUE(pair.dialed().setVersionsOfClassesInPeerProcess(versions, 1));
  EXPECT_TRUE(pair.dialed().getClassFactory(L"Caller", L"Server", true));
}

TEST_F(ConnectionTest, ARequestBeforeTheChannelIsStartedIsRefusedHere) {
  ConnectionPair pair;
  const CS_RCPtr<CS_Component> component = pair.dialed().getClassFactory(L"Caller", L"Server", true)->newInstance(0);
  ASSERT_TRUE(component);
  EXPECT_EQ(kMissingObject, failureOf([&] { CS_OutRequest request(component, 1); }).first);
}

TEST_F(ConnectionTest, AReplyAfterItsTimeIsDroppedAndTheNextOneIsRight) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  m_seen.mayAnswer = false;
  EXPECT_EQ(kReplyTimedOut, failureOf([&] { askInt(component, 6, 50); }).first);
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  EXPECT_EQ(10, twice(component, 5));
}

TEST_F(ConnectionTest, ThreadsThatWaitAtTheSameTimeEachGetTheirOwnReply) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const int value = t * 1000 + i;
        if (twice(component, value) != 2 * value) ++wrong;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(0, wrong);
}

TEST_F(ConnectionTest, WhenThePeerEndsEveryWaiterFailsAtOnceAndEveryComponentIsReleased) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  EXPECT_EQ(2, twice(component, 1));
  m_seen.mayAnswer = false;
  std::vector<std::thread> threads;
  std::atomic<int> lost{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      if (failureOf([&] { askInt(component, 6, 60000); }).first == kConnectionLost) ++lost;
    });
  }
  CS_Connection::destroy(pair.accepted(), true);
  for (auto& thread : threads)
    thread.join();
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  EXPECT_EQ(4, lost);
  m_seen.waitFor([&] { return m_seen.released == 101; });
  EXPECT_FALSE(component->isConnected());
  EXPECT_EQ(kConnectionLost, failureOf([&] { twice(component, 1); }).first);
}

TEST_F(ConnectionTest, DestroyingAConnectionHereFailsAWaiterAndIsReportedOnce) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  m_seen.mayAnswer = false;
  std::thread waiter([&] {
    EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"the connection was closed on this side")),
              failureOf([&] { askInt(component, 6, 60000); }));
  });
  EXPECT_TRUE(CS_Connection::destroy(pair.dialedPointer(), true));
  waiter.join();
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  EXPECT_FALSE(CS_Connection::destroy(nullptr, true));
  pair.join();  // in order, or reset while the answer was on its way
}

TEST_F(ConnectionTest, ABlockLargerThanAFrameArrivesWholeOnABridge) {
  ConnectionPair pair;
  const auto bridge =
      pair.dialed().getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true)->newInstance(0);
  ASSERT_NE(nullptr, bridge);
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  for (const int size : {0, 1, 65535, 65536, 65537, 3000000}) {
    const std::vector<unsigned char> block(static_cast<std::size_t>(size), 3);
    m_seen.bytes = 0;
    sendBlock(component, block);
    EXPECT_EQ(size, askInt(component, 3));
  }
  EXPECT_LE(m_seen.largestPiece, kMaxFramePayload);
  EXPECT_EQ(3u * (1 + 65535 + 65536 + 65537 + 3000000), m_seen.sum);
}

TEST_F(ConnectionTest, ARequestPastItsBoundToAComponentWithoutABridgeClosesTheConnection) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  sendBlock(component, std::vector<unsigned char>(kMaxCollectedRequest / 2, 1));
  EXPECT_EQ(static_cast<int>(kMaxCollectedRequest / 2), askInt(component, 3));
  failureOf([&] { sendBlock(component, std::vector<unsigned char>(2 * kMaxCollectedRequest, 1)); });
  EXPECT_EQ(L"a request of more than 1048576 bytes", pair.join());
}

TEST_F(ConnectionTest, ComponentsOfABridgeAreReleasedWhenItEnds) {
  ConnectionPair pair;
  const CS_RCPtr<CS_Component> bridge =
      pair.dialed().getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true)->newInstance(0);
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  EXPECT_EQ(2, twice(component, 1));
  bridge->getChannel(true)->startSending();
  EXPECT_TRUE(bridge->releasePeer());
  m_seen.waitFor([&] { return m_seen.released == 100; });
}

TEST_F(ConnectionTest, AConnectionWhoseMonitorStandsOnItIsFreedAfterItsEnd) {
  const auto held = std::make_shared<int>();
  {
    ConnectionPair pair;
    pair.dialed().onEnd([held](const std::wstring&) {});
    const CS_RCPtr<CS_ClassFactory> factory =
        pair.dialed().getClassFactory(CS_ProgramMonitor_c::m_className, L"Server", true);
    auto* monitor = dynamic_cast<CS_ProgramMonitor_c*>(factory->newInstance(0));
    ASSERT_NE(monitor, nullptr);
    pair.dialed().setProgramMonitor(monitor);
    EXPECT_EQ(held.use_count(), 2);
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ConnectionTest, ABridgeThatLeadsNowhereRefusesRequests) {
  ConnectionPair pair;
  const auto bridge =
      pair.dialed().getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)->newInstance(0);
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the bridge leads to no print client")),
            failureOf([&] { twice(component, 1); }));
}

// A monitor's connection to a server and that server's connection to a client: the bridge goes from end to end.
class RoutedTest : public ConnectionTest {
 protected:
  RoutedTest() {
    // The client dials the server, as a print client does, and serves its own end.
    m_clientServer = std::thread([this] { m_client.dialed().serve(); });
    m_bridge = m_monitor.dialed()
                   .getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)
                   ->newInstance(0);
    // A request on the connection makes the server see the bridge.
    const auto probe = makeComponent(m_monitor.dialed(), L"Caller", L"Server");
    twice(probe, 1);
    m_router = m_monitor.accepted()->getChild(m_bridge->getIdentifier());
    auto* router = dynamic_cast<CS_BridgeRouter*>(m_router.get());
    router->onEnd([this](std::uint64_t bytes, const std::wstring& reason) {
      const std::lock_guard guard(m_seen.lock);
      m_routedBytes = bytes;
      m_reason = reason;
      m_seen.changed.notify_all();
    });
    EXPECT_TRUE(router->routeTo(m_client.accepted()));
    EXPECT_FALSE(router->routeTo(m_client.accepted()));
    m_component = makeComponent(*m_bridge, L"Caller", L"Server");
  }
  ~RoutedTest() override {
    CS_Connection::destroy(m_client.dialedPointer(), true);
    m_clientServer.join();
  }

  std::uint64_t m_routedBytes = 0;
  std::wstring m_reason;
  ConnectionPair m_client;
  std::thread m_clientServer;
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
  std::thread waiter([&] { failure = failureOf([&] { askInt(m_component, 6, 60000); }); });
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
  m_seen.waitFor([&] { return !m_reason.empty(); });
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
  m_seen.waitFor([&] { return m_seen.released >= 101 && m_routedBytes > 0; });
  EXPECT_EQ(L"", m_reason);
}

}  // namespace
