#include "corvane/wire/heartbeat.h"

#include "corvane/wire/frame.h"
#include "corvane/wire/link.h"
#include "tests/support/corvane/echo_fixture.h"
#include "tests/support/corvane/socket_fixture.h"

#include <optional>

namespace {

using namespace echo;
using namespace std::chrono_literals;

// Who lives beats a hundred times before it would be given up, so that a busy machine makes no difference.
constexpr Patience kOften{120s, 10ms, 1s};
const std::wstring kSilent = L"nothing was heard from the other side for 1 second";
constexpr Patience kSoon{120s, 10ms, 100ms};
const std::wstring kSilentSoon = L"nothing was heard from the other side for 100 ms";

// The next frame that comes on the socket; nothing when the peer closes.
std::optional<FrameHeader> nextFrame(Socket& socket, FrameReader& reader) {
  for (;;) {
    if (const auto frame = reader.next()) return frame->header;
    if (reader.fill(socket, after(20000)) != FrameReader::Fill::kData) return std::nullopt;
  }
}

HelloValues hello(bool offers) {
  HelloValues values = {{L"process", L"77"}};
  if (offers) values[L"heartbeat"] = L"1";
  return values;
}

class HeartbeatTest : public EchoTest {
 protected:
  // Accepts one connection with a heartbeat and serves it; its reason is there after join().
  class Server {
   public:
    explicit Server(Heartbeat* heartbeat) : m_listener(OwnListener::host() + ":0") {
      m_thread = JoinedThread([this, heartbeat] {
        m_connection = CS_Connection::accept(std::move(*m_listener.accept()), nullptr, heartbeat);
        m_reason = m_connection->serve();
        m_ended = true;
      });
    }
    ~Server() { join(); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const { return m_listener.port(); }
    Socket dial() const { return Socket::connect(OwnListener::host(), m_listener.port(), false); }
    bool hasEnded() const { return m_ended; }
    std::wstring join() {
      if (m_thread.joinable()) m_thread.join();
      return m_reason;
    }

   private:
    Listener m_listener;
    CS_RCPtr<CS_Connection> m_connection;
    std::wstring m_reason;
    std::atomic<bool> m_ended{false};
    JoinedThread m_thread;
  };

  Heartbeat m_heartbeat{kOften};
  Heartbeat m_impatient{kSoon};
};

TEST_F(HeartbeatTest, IsEveryFiveSecondsAndFiveThatAreMissingAreTheEnd) {
  EXPECT_EQ(5s, Patience().beat);
  EXPECT_EQ(25s, Patience().silence);
}

TEST_F(HeartbeatTest, APeerThatOffersItIsGivenUpWhenItFallsSilentAlthoughItsSocketIsOpen) {
  Server server(&m_impatient);
  Link link(server.dial());
  EXPECT_EQ(L"1", link.sayHello(hello(true), after(20000)).at(L"heartbeat"));
  EXPECT_EQ(kSilentSoon, server.join());
}

TEST_F(HeartbeatTest, APeerThatDoesNotOfferItGetsNoBeatAndMayBeSilent) {
  Server silent(&m_impatient);
  Server other(&m_impatient);
  Socket socket = silent.dial();
  {
    Link link(std::move(socket));
    link.sayHello(hello(false), after(20000));
    Link offers(other.dial());
    offers.sayHello(hello(true), after(20000));
    EXPECT_EQ(kSilentSoon, other.join());
    EXPECT_FALSE(silent.hasEnded());
    link.end(L"done");
  }
  EXPECT_EQ(L"", silent.join());
}

TEST_F(HeartbeatTest, AServerThatDoesNotOfferItGetsNoBeat) {
  Server old(nullptr);
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  connection->useHeartbeat(&m_impatient);
  connection->connect(OwnListener::wideHost().c_str(), old.port(), CS_Connection::kDirect, false);
  EXPECT_EQ(0u, connection->peerValues().count(L"heartbeat"));
  Server other(&m_impatient);
  Link offers(other.dial());
  offers.sayHello(hello(true), after(20000));
  JoinedThread serving([&] { connection->serve(); });
  EXPECT_EQ(kSilentSoon, other.join());  // what silence ends has ended meanwhile
  EXPECT_TRUE(connection->isConnected());
  CS_Connection::destroy(connection, true);
  serving.join();
  EXPECT_EQ(L"", old.join());
}

TEST_F(HeartbeatTest, BothEndsBeatAndStayConnectedForAsLongAsTheyDo) {
  Server server(&m_heartbeat);
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  connection->useHeartbeat(&m_heartbeat);
  connection->connect(OwnListener::wideHost().c_str(), server.port(), CS_Connection::kDirect, false);
  JoinedThread serving([&] { connection->serve(); });
  Server other(&m_heartbeat);
  Link silent(other.dial());
  silent.sayHello(hello(true), after(20000));
  EXPECT_EQ(kSilent, other.join());
  EXPECT_TRUE(connection->isConnected());
  EXPECT_FALSE(server.hasEnded());
  CS_Connection::destroy(connection, true);
  serving.join();
  EXPECT_EQ(L"", server.join());
}

TEST_F(HeartbeatTest, AServerThatIsSilentIsGivenUpToo) {
  Listener listener(OwnListener::host() + ":0");
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  connection->useHeartbeat(&m_impatient);
  std::unique_ptr<Link> server;
  JoinedThread accepting([&] {
    server = std::make_unique<Link>(std::move(*listener.accept()));
    EXPECT_EQ(L"1", server->awaitHello(after(20000)).at(L"heartbeat"));
    server->welcome(hello(true));
  });
  connection->connect(OwnListener::wideHost().c_str(), listener.port(), CS_Connection::kDirect, false);
  accepting.join();
  EXPECT_EQ(kSilentSoon, connection->serve());
}

TEST_F(HeartbeatTest, ABeatIsAFrameOfItsKindAndNothingElse) {
  NarrowPair pair;
  Link link(std::move(pair.dialed));
  link.beat();
  FrameReader reader;
  const auto frame = nextFrame(pair.accepted, reader);
  ASSERT_TRUE(frame);
  EXPECT_EQ(FrameKind::kBeat, frame->kind);
  EXPECT_EQ(9, static_cast<int>(frame->kind));
  EXPECT_EQ(0u, frame->length);
  EXPECT_EQ(0u, frame->bridge);
}

TEST_F(HeartbeatTest, WhatWasAnnouncedGoesOutInFrontOfABeat) {
  NarrowPair pair;
  Link link(std::move(pair.dialed));
  link.announceProof(L"proof");
  link.beat();
  FrameReader reader;
  EXPECT_EQ(FrameKind::kProof, nextFrame(pair.accepted, reader)->kind);
  EXPECT_EQ(FrameKind::kBeat, nextFrame(pair.accepted, reader)->kind);
  link.beat();
  EXPECT_EQ(FrameKind::kBeat, nextFrame(pair.accepted, reader)->kind);
}

TEST_F(HeartbeatTest, ABeatNeverWaitsBehindDataThatThePeerDoesNotTake) {
  NarrowPair pair;
  Link link(std::move(pair.dialed));
  const auto bytes = unlikeBytes(200000);
  JoinedThread sender([&] { EXPECT_ANY_THROW(link.sendFrames(bytes)); });
  EXPECT_EQ(100u, receiveAll(pair.accepted, 100).size());  // it is sending, and must wait: no buffer holds that much
  for (int i = 0; i < 1000; ++i)
    link.beat();
  pair.accepted = Socket();
  sender.join();
}

TEST_F(HeartbeatTest, ABeatNeverWaitsWhereTheSocketIsFullAndNobodyIsSending) {
  NarrowPair pair;
  pair.dialed.setPatience(Patience{1ms, 1ms, 1ms});
  const auto bytes = unlikeBytes(1000);
  const Socket::Piece pieces[] = {bytes};
  try {
    for (;;)
      pair.dialed.send(pieces);
  } catch (const CS_Exception&) {
    // It is full.
  }
  Link link(std::move(pair.dialed));
  for (int i = 0; i < 1000; ++i)
    link.beat();
  EXPECT_FALSE(link.hasEnded());
}

TEST_F(HeartbeatTest, AFailedBeatLetsTheReadingThreadSeeTheEnd) {
  NarrowPair pair;
  Link link(std::move(pair.dialed));
  pair.accepted = Socket();
  while (!link.peerHasClosed())
    std::this_thread::yield();
  link.beat();
  link.beat();
  EXPECT_NE(L"", link.serve());
}

TEST_F(HeartbeatTest, AProgramThatIsBusyWithAJobIsNotGivenUpAndGivesNobodyUp) {
  Server server(&m_heartbeat);
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  connection->useHeartbeat(&m_heartbeat);
  connection->connect(OwnListener::wideHost().c_str(), server.port(), CS_Connection::kDirect, false);
  JoinedThread serving([&] { connection->serve(); });
  // The component on the bridge does not come back from a request, and behind it the bridge's frames fill up until the
  // server's reader waits: so it is with a job and a disk that stands still.
  m_seen.mayAnswer = false;
  const CS_RCPtr<CS_Component> bridge =
      connection->getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true)->newInstance(0);
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  JoinedThread job([&] {
    try {
      CS_OutRequest(component, 6).execute();
      for (int i = 0; i < 40; ++i)
        sendBlock(component, unlikeBytes(256 * 1024));
    } catch (const CS_Exception&) {
      ADD_FAILURE() << "the connection ended";
    }
  });
  m_seen.waitFor([&] { return m_seen.asked == 1; });
  Server other(&m_heartbeat);
  Link silent(other.dial());
  silent.sayHello(hello(true), after(20000));
  EXPECT_EQ(kSilent, other.join());
  EXPECT_TRUE(connection->isConnected());
  EXPECT_FALSE(server.hasEnded());
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  job.join();
  EXPECT_EQ(40 * 256 * 1024, askInt(component, 3));
  CS_Connection::destroy(connection, true);
  serving.join();
  server.join();
  CS_Bridge::waitForThreads(10000);
}

}  // namespace
