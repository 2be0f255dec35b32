#include "corvane/wire/heartbeat.h"
#include "server/connection_list.h"
#include "tests/support/heap_in_use.h"
#include "tests/support/server/connection_list_fixture.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory>
#include <thread>
#include <vector>

namespace aps {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ParkingTest : public ConnectionListTest {
 protected:
  ParkingTest() {
    m_places.parkedAfter = 1ms;
    m_places.administration = 64;
  }

  static std::ptrdiff_t threads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
  }
  // Until there have been no more for a while: a thread that is to come may hide one that is to go.
  static void awaitThreads(std::ptrdiff_t count) {
    for (int calm = 0; calm < 100; ++calm) {
      if (threads() > count) calm = 0;
      std::this_thread::sleep_for(1ms);
    }
  }
  // Peers that have been served, and are parked now.
  std::vector<std::unique_ptr<Peer>> parked(int count, const wchar_t* className = kTool) {
    const std::ptrdiff_t before = threads();
    std::vector<std::unique_ptr<Peer>> peers;
    for (int i = 0; i < count; ++i) {
      peers.push_back(std::make_unique<Peer>(port(), className));
      EXPECT_EQ(peers.back()->ask(), kServed);
    }
    awaitThreads(before);
    return peers;
  }
  std::size_t connections() {
    std::size_t all = 0;
    for (const std::size_t room : m_list->counts())
      all += room;
    return all;
  }
};

TEST_F(ParkingTest, HoweverManyPeersSayNothingTheyNeedNoThreadAndEachIsServedAgain) {
  start();
  const auto peers = parked(50);
  EXPECT_EQ(connections(), 50u);
  for (int round = 0; round < 3; ++round) {
    for (const auto& peer : peers)
      EXPECT_EQ(peer->ask(), kServed);
  }
}

TEST_F(ParkingTest, ManyAskAtOnceAgainAndAgain) {
  start();
  const auto peers = parked(8);
  std::vector<JoinedThread> asking;
  for (const auto& peer : peers) {
    asking.emplace_back([&peer = *peer] {
      for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(peer.ask(), kServed);
        if (i % 3 == 0) std::this_thread::sleep_for(std::chrono::microseconds(i % 2 == 0 ? 900 : 1100));
      }
    });
  }
  for (JoinedThread& thread : asking)
    thread.join();
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(ParkingTest, TenThousandParkingsLeaveNothingBehind) {
  start();
  const auto peers = parked(20);
  const auto parkAgain = [&](int times) {
    const std::ptrdiff_t before = threads();
    std::vector<JoinedThread> asking;
    for (const auto& peer : peers) {
      asking.emplace_back([&peer = *peer, times] {
        for (int i = 0; i < times; ++i) {
          EXPECT_EQ(peer.ask(), kServed);
          std::this_thread::sleep_for(3ms);  // parked behind one
        }
      });
    }
    for (JoinedThread& thread : asking)
      thread.join();
    awaitThreads(before);
  };
  const auto files = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  parkAgain(100);
  const std::size_t memory = heapInUse();
  const std::ptrdiff_t open = files();
  parkAgain(500);
  EXPECT_LE(heapInUse(), memory + 100 * 1024) << "10 bytes for each";
  EXPECT_EQ(files(), open);
}

TEST_F(ParkingTest, APeerThatGoesWhileItIsParkedTakesNoPlaceAnyMore) {
  start();
  auto peers = parked(3);
  peers.pop_back();
  while (connections() != 2)
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(peers[0]->ask(), kServed);
  EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(ParkingTest, AParkedConnectionMakesRoomAsAnyOther) {
  m_places.administration = 2;
  start();
  const auto peers = parked(2);
  EXPECT_EQ(Peer(port(), kTool).ask(), kServed);
  EXPECT_EQ(peers[0]->ask(), L"closed");
  EXPECT_EQ(peers[1]->ask(), kServed);
}

TEST_F(ParkingTest, AParkedConnectionThatIsNoUseForLongIsClosed) {
  m_places.administrationIdle = 100ms;
  start();
  const auto peers = parked(1);
  awaitFailure(" closed: it is one of administration tools, and was idle for 0 s");
  EXPECT_EQ(peers[0]->ask(), L"closed");
  while (connections() != 0)
    std::this_thread::sleep_for(1ms);
}

TEST_F(ParkingTest, TheEndOfTheServerEndsThemAndBlamesNobody) {
  start();
  const auto peers = parked(20);
  stop();
  for (const auto& peer : peers)
    EXPECT_EQ(peer->ask(), L"closed");
  EXPECT_THAT(failures(), IsEmpty());
}

// A print client that beats, with its thread.
class BeatingPeer {
 public:
  BeatingPeer(int port, const corvane::Patience& patience)
      : m_heartbeat(std::make_unique<corvane::Heartbeat>(patience)), m_connection(CS_Connection::create()) {
    m_connection->useHeartbeat(m_heartbeat.get());
    m_connection->connect(OwnListener::wideHost().c_str(), port, CS_Connection::kDirect, false);
    m_serving = JoinedThread([this] {
      m_connection->serve();
      m_ended = true;
    });
  }
  ~BeatingPeer() {
    CS_Connection::destroy(m_connection, true);
    m_serving.join();
  }
  void beQuiet() { m_heartbeat.reset(); }
  bool hasEnded() const { return m_ended; }

 private:
  std::unique_ptr<corvane::Heartbeat> m_heartbeat;
  CS_RCPtr<CS_Connection> m_connection;
  std::atomic<bool> m_ended{false};
  JoinedThread m_serving;
};

TEST_F(ParkingTest, APeerThatBeatsNeedsNoThreadAndStaysAndItsSilenceEndsIt) {
  constexpr corvane::Patience kPatience{120s, 10ms, 1s};
  start(nullptr, kPatience);
  const std::ptrdiff_t before = threads();
  BeatingPeer peer(port(), kPatience);
  // Its own thread, its heartbeat's and that of the server's; what serves it is gone soon.
  awaitThreads(before + 3);
  const auto until = std::chrono::steady_clock::now() + 2 * kPatience.silence;
  std::ptrdiff_t most = 0;
  while (std::chrono::steady_clock::now() < until) {
    most = std::max(most, threads());
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_LE(most, before + 3);
  EXPECT_FALSE(peer.hasEnded());
  EXPECT_EQ(connections(), 1u);
  peer.beQuiet();
  while (!peer.hasEnded())
    std::this_thread::sleep_for(1ms);
  awaitFailure(" ended: nothing was heard from the other side for 1 second");
}

}  // namespace
}  // namespace aps
