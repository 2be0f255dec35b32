#include "server/connection_list.h"

#include "corvane/components/bridge.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/corvane/key_files_fixture.h"
#include "tests/support/server/connection_list_fixture.h"

#include <algorithm>
#include <array>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace aps {
namespace {

using corvane::Identity;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST_F(ConnectionListTest, ThoseWhoSayNothingMakeRoomOldestFirstAndHinderNobody) {
  m_places.arriving = 4;
  start();
  std::vector<corvane::Socket> crowd;
  for (int i = 0; i < 20; ++i)
    crowd.push_back(silent());
  Peer monitor(port(), kMonitor);
  EXPECT_EQ(monitor.ask(), kServed);
  for (int i = 0; i < 17; ++i)
    waitUntilClosed(crowd[static_cast<std::size_t>(i)]);
  EXPECT_FALSE(isClosed(crowd[19]));
  EXPECT_FALSE(isClosed(crowd[18]));
  EXPECT_EQ(monitor.ask(), kServed);
  EXPECT_THAT(failures(), AllOf(HasSubstr("connection from 127.0.0.1:"),
                                HasSubstr(" closed: it had asked for nothing yet, and its place is needed for one that "
                                          "came later"),
                                Not(HasSubstr(" refused: "))));
}

TEST_F(ConnectionListTest, ThoseWhoSaidHelloAndAskForNothingTakeNoOtherPlaces) {
  m_places.arriving = 4;
  start();
  std::vector<CS_RCPtr<CS_Connection>> crowd;
  for (int i = 0; i < 10; ++i) {
    crowd.push_back(CS_Connection::create());
    crowd.back()->connect(OwnListener::wideHost().c_str(), port(), CS_Connection::kDirect, false);
  }
  EXPECT_EQ(Peer(port(), kMonitor).ask(), kServed);
  for (const auto& each : crowd)
    CS_Connection::destroy(each, true);
}

TEST_F(ConnectionListTest, InAFullRoomTheOneThatIsSilentLongestMakesRoom) {
  m_places.administration = 2;
  start();
  Peer first(port(), kTool);
  Peer second(port(), kTool);
  EXPECT_EQ(first.ask(), kServed);
  EXPECT_EQ(second.ask(), kServed);
  EXPECT_EQ(first.ask(), kServed);
  Peer third(port(), kTool);
  EXPECT_EQ(third.ask(), kServed);
  EXPECT_EQ(second.ask(), L"closed");
  EXPECT_EQ(first.ask(), kServed);
  EXPECT_THAT(failures(), HasSubstr(" closed: all places for administration tools were taken, and it had been silent "
                                    "longest"));
}

TEST_F(ConnectionListTest, WhoIsNeededStaysAndTheNewOneIsToldSo) {
  m_places.monitor = 1;
  start();
  Peer first(port(), kMonitor);
  EXPECT_EQ(first.ask(), kServed);
  m_allNeeded = true;
  Peer second(port(), kMonitor);
  const std::wstring refusal = L"all places for the port monitor are in use; try again when some are free";
  EXPECT_EQ(second.ask(), refusal);
  EXPECT_EQ(first.ask(), kServed);
  m_allNeeded = false;
  EXPECT_EQ(second.askFor(kMonitor), kServed) << "it may try again on the same connection";
  EXPECT_EQ(first.ask(), L"closed");
}

TEST_F(ConnectionListTest, AFullRoomTakesNothingFromTheOthers) {
  m_places.monitor = m_places.clients = m_places.administration = 1;
  start();
  m_allNeeded = true;
  std::vector<std::unique_ptr<Peer>> peers;
  for (const wchar_t* kind : {kMonitor, kClient, kTool}) {
    peers.push_back(std::make_unique<Peer>(port(), kind));
    EXPECT_EQ(peers.back()->ask(), kServed);
    EXPECT_NE(Peer(port(), kind).ask(), kServed);
  }
  for (const auto& peer : peers)
    EXPECT_EQ(peer->ask(), kServed);
}

TEST_F(ConnectionListTest, TheMonitorsComponentMayStandOnABridgeAndNoConnectionGetsManyOfThem) {
  start();
  Peer monitor(port(), kMonitor);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(monitor.askFor(CS_Bridge::m_className), kServed) << i;
  EXPECT_EQ(monitor.askFor(CS_Bridge::m_className),
            L"a connection gets 4 bridges of this server; make another connection");
  EXPECT_EQ(monitor.ask(), kServed);
  Peer another(port(), CS_Bridge::m_className);
  EXPECT_EQ(another.ask(), kServed);
}

TEST_F(ConnectionListTest, AConnectionStaysOfItsKind) {
  start();
  Peer client(port(), kClient);
  EXPECT_EQ(client.ask(), kServed);
  const std::wstring refusal = L"a connection is either a print client's or the monitor's; make another one";
  EXPECT_EQ(client.askFor(kMonitor), refusal);
  EXPECT_EQ(client.askFor(kTool), refusal);
  EXPECT_EQ(client.askFor(kClient), kServed);
  Peer tool(port(), kTool);
  EXPECT_EQ(tool.ask(), kServed);
  EXPECT_EQ(tool.askFor(kClient), refusal);
  EXPECT_EQ(tool.askFor(kMonitor), kServed) << "the administration tool may do what the monitor may";
  EXPECT_EQ(tool.askFor(kTool), kServed);
}

TEST_F(ConnectionListTest, TheMonitorMayAskWhatAToolAsksAndTakesNoToolsPlace) {
  m_places.administration = 1;
  start();
  Peer tool(port(), kTool);
  EXPECT_EQ(tool.ask(), kServed);
  Peer monitor(port(), kMonitor);
  EXPECT_EQ(monitor.ask(), kServed);
  EXPECT_EQ(monitor.askFor(kTool), kServed);
  EXPECT_EQ(tool.ask(), kServed);
}

TEST_F(ConnectionListTest, WhoSaysNothingForLongIsClosed) {
  m_places.arrivingIdle = std::chrono::milliseconds(50);
  start();
  corvane::Socket nothing = silent();
  waitUntilClosed(nothing);
  awaitFailure(" closed: it is one of peers that have asked for nothing yet, and was idle for 0 s");
}

TEST_F(ConnectionListTest, AClientOrToolThatIsNoUseForLongIsClosedAndTheMonitorsConnectionNever) {
  m_places.clientsIdle = m_places.administrationIdle = std::chrono::milliseconds(50);
  start();
  Peer monitor(port(), kMonitor);
  EXPECT_EQ(monitor.ask(), kServed);
  Peer client(port(), kClient);
  Peer tool(port(), kTool);
  client.ask();
  tool.ask();
  awaitFailure(" closed: it is one of print clients, and was idle for 0 s");
  awaitFailure(" closed: it is one of administration tools, and was idle for 0 s");
  EXPECT_EQ(client.ask(), L"closed");
  EXPECT_EQ(tool.ask(), L"closed");
  EXPECT_EQ(monitor.ask(), kServed);
}

TEST_F(ConnectionListTest, AConnectionThatIsNeededMayBeSilentForLong) {
  m_places.clientsIdle = std::chrono::milliseconds(1);
  m_allNeeded = true;
  start();
  Peer client(port(), kClient);
  EXPECT_EQ(client.ask(), kServed);
  for (const int looks = m_looks; m_looks < looks + 3;)
    std::this_thread::yield();
  EXPECT_EQ(client.ask(), kServed);
}

TEST_F(ConnectionListTest, OneSessionsKeyTakesItsOwnPlacesOnly) {
  const keys::KeyFiles files;
  files.add("session-5", '5');
  files.add("session-6", '6');
  files.add("monitor", 'a');
  const corvane::KeyFolder folder = files.folder();
  m_places.ofOneSession = 2;
  m_places.clients = 5;
  start(&folder);
  const auto client = [&](int session) {
    const std::string name = "session-" + std::to_string(session);
    return std::make_unique<Peer>(port(), kClient, Identity::session(session), files.path(name + ".key"));
  };
  const auto other = client(6);
  EXPECT_EQ(other->ask(), kServed);
  std::vector<std::unique_ptr<Peer>> many;
  for (int i = 0; i < 4; ++i) {
    many.push_back(client(5));
    EXPECT_EQ(many.back()->ask(), kServed) << i;
  }
  EXPECT_EQ(many[0]->ask(), L"closed");
  EXPECT_EQ(many[1]->ask(), L"closed");
  EXPECT_EQ(many[2]->ask(), kServed);
  EXPECT_EQ(other->ask(), kServed);
  m_allNeeded = true;
  EXPECT_EQ(client(5)->ask(), L"all places for print clients are in use; try again when some are free");
  EXPECT_EQ(client(6)->ask(), kServed);
  std::vector<std::unique_ptr<Peer>> monitors;
  for (int i = 0; i < 6; ++i) {
    monitors.push_back(std::make_unique<Peer>(port(), kMonitor, Identity::monitor(), files.path("monitor.key")));
    EXPECT_EQ(monitors.back()->ask(), kServed);
  }
  stop();  // before the keys go
}

TEST_F(ConnectionListTest, WhoProvesNothingWaitsForItsRefusalSomeAtOnceAndNobodyElseDoes) {
  const keys::KeyFiles files;
  files.add("session-5", '5');
  const corvane::KeyFolder folder = files.folder();
  m_places.beforeRefusal = std::chrono::hours(1);
  m_places.heldBack = 2;
  start(&folder);
  // What a peer without a key is told at last; never anything good.
  const auto knock = [&] {
    try {
      Peer(port(), kClient);
    } catch (const CS_Exception& failure) {
      return failure.number();
    }
    return 0;
  };
  std::vector<std::future<int>> strangers;
  for (int i = 0; i < 3; ++i)
    strangers.push_back(std::async(std::launch::async, knock));
  const auto waiting = [&] {
    return std::count_if(strangers.begin(), strangers.end(), [](const std::future<int>& stranger) {
      return stranger.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    });
  };
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (waiting() == 3 && std::chrono::steady_clock::now() < limit)
    std::this_thread::yield();
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(knock(), corvane::kKeyNeeded) << "two wait already";
  EXPECT_EQ(waiting(), 2);
  EXPECT_EQ(Peer(port(), kClient, Identity::session(5), files.path("session-5.key")).ask(), kServed);
  stop();
  for (std::future<int>& stranger : strangers)
    EXPECT_THAT(stranger.get(), ::testing::AnyOf(corvane::kKeyNeeded, corvane::kConnectFailed));
  stop();  // before the keys go
}

TEST_F(ConnectionListTest, WhoSpeaksAnotherProtocolWaitsForItsEndToo) {
  m_places.beforeRefusal = std::chrono::hours(1);
  m_places.heldBack = 1;
  start();
  const std::vector<unsigned char> text(64, 'G');
  std::vector<corvane::Socket> strangers;
  for (int i = 0; i < 2; ++i) {
    strangers.push_back(silent());
    strangers.back().send(std::array<corvane::Socket::Piece, 1>{corvane::Socket::Piece(text)});
  }
  const auto closed = [&] { return std::count_if(strangers.begin(), strangers.end(), isClosed); };
  while (closed() == 0)
    std::this_thread::yield();
  Peer peer(port(), kMonitor);
  EXPECT_EQ(peer.ask(), kServed);
  EXPECT_EQ(closed(), 1);
  stop();
  EXPECT_EQ(closed(), 2);
}

TEST_F(ConnectionListTest, PastTheBoundOfAllTheNewOneIsTurnedAwayWhenNobodyCanMakeRoom) {
  m_places.all = 2;
  start();
  Peer first(port(), kMonitor);
  Peer second(port(), kTool);
  EXPECT_EQ(first.ask(), kServed);
  EXPECT_EQ(second.ask(), kServed);
  corvane::Socket third = silent();
  waitUntilClosed(third);
  EXPECT_THAT(failures(), HasSubstr(" refused: there are 2 connections, which is the limit; end some"));
  EXPECT_EQ(first.ask(), kServed);
}

TEST_F(ConnectionListTest, TheEndWaitsForNoPeer) {
  start();
  std::vector<corvane::Socket> crowd;
  for (int i = 0; i < 5; ++i)
    crowd.push_back(silent());
  Peer monitor(port(), kMonitor);
  EXPECT_EQ(monitor.ask(), kServed);
  stop();
  for (corvane::Socket& socket : crowd)
    EXPECT_TRUE(isClosed(socket));
  EXPECT_EQ(monitor.ask(), L"closed");
  EXPECT_THAT(failures(), IsEmpty()) << "nobody ran out of time, and nobody is to blame";
}

}  // namespace
}  // namespace aps
