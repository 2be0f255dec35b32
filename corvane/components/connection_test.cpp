#include "corvane/components/connection.h"

#include "corvane/components/program_monitor_c.h"
#include "tests/support/corvane/echo_fixture.h"
#include "tests/support/corvane/link_fixture.h"
#include "tests/support/corvane/socket_fixture.h"

#include <atomic>

namespace {

using namespace echo;

class ConnectionTest : public EchoTest {};

TEST_F(ConnectionTest, AReplyBringsTheValuesBack) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  ASSERT_TRUE(component);
  EXPECT_EQ(42, twice(component, 21));
  EXPECT_EQ(-2, twice(component, -1));
}

TEST_F(ConnectionTest, WhatWasHeardLastIsTheLastReplyAndNothingBeforeTheFirstConnect) {
  EXPECT_EQ(CS_Connection::create()->lastHeard(), std::chrono::steady_clock::time_point());
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(2, twice(component, 1));
  EXPECT_GE(pair.dialed().lastHeard(), before);
  EXPECT_LE(pair.dialed().lastHeard(), std::chrono::steady_clock::now());
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

TEST_F(ConnectionTest, PartOfABlockIsSentFromItsPlace) {
  ConnectionPair pair;
  const auto component = makeComponent(pair.dialed(), L"Caller", L"Server");
  const unsigned char block[] = {1, 2, 4, 8, 16};
  CS_OutRequest request(component, 2);
  request.write(block, 2, 2);
  request.execute();
  EXPECT_EQ(2, askInt(component, 3));
  EXPECT_EQ(4u + 8, m_seen.sum);
  CS_OutRequest bad(component, 2);
  EXPECT_EQ(kBadArgument, failureOf([&] { bad.write(block, -1, 2); }).first);
  EXPECT_EQ(kBadArgument, failureOf([&] { bad.write(nullptr, 0, 2); }).first);
}

TEST_F(ConnectionTest, TheTimeForAReplyBeginsBeforeItsRequestIsSent) {
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  OwnListener listener;
  Happening hasStarted;
  std::jthread server([&] {
    Link link(listener.accept());
    link.awaitHello(after(20000));
    link.welcome({});
    EXPECT_TRUE(hasStarted.await());
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // more than the time for the reply
    FrameTaker taker;
    taker.take = [&](const Frame& frame) {
      if (!frame.header.wantsReply() || frame.header.hasMore()) return;
      FrameHeader header = frame.header;
      header.kind = FrameKind::kReply;
      header.flags = 0;
      std::this_thread::sleep_for(std::chrono::milliseconds(30));  // a reply that is there already would be taken
      link.send(header, ValueWriter());
    };
    link.setHandler(&taker);
    link.serve();
    link.setHandler(nullptr);
  });
  connection->connect(OwnListener::wideHost().c_str(), listener.port(), CS_Connection::kDirect, false);
  const auto component = makeComponent(*connection, L"Caller", L"Server");
  const std::vector<unsigned char> block(16 * 1024 * 1024);  // more than the system holds
  CS_OutRequest request(component, 1);
  request.write(block.data(), static_cast<int>(block.size()));
  CS_InRequest reply(request);
  hasStarted.happen();
  EXPECT_EQ(kReplyTimedOut, failureOf([&] { request.execute(reply, 200); }).first);
  CS_Connection::destroy(connection, true);
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
  std::vector<JoinedThread> threads;
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
  std::vector<JoinedThread> threads;
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
  JoinedThread waiter([&] {
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

TEST_F(ConnectionTest, APeerThatHasClosedIsSeenWithoutReceivingWhateverItSentBefore) {
  for (const bool sendsBefore : {false, true}) {
    OwnListener listener;
    auto peer = std::make_unique<Socket>(listener.dial());
    const Socket here = listener.accept();
    EXPECT_FALSE(here.peerHasClosed());
    if (sendsBefore) {
      const unsigned char bytes[3] = {1, 2, 3};
      const Socket::Piece piece(bytes);
      peer->send({&piece, 1});
      EXPECT_FALSE(here.peerHasClosed());
    }
    peer.reset();
#ifdef _WIN32
    if (sendsBefore) continue;  // there it is seen when what was sent has been received
#endif
    while (!here.peerHasClosed())
      std::this_thread::yield();
  }
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

// Sends until the connection is lost, and says how.
JoinedThread sendAll(Link& link, std::pair<int, std::wstring>& failure) {
  return JoinedThread(
      [&link, &failure] {
        const std::vector<unsigned char> frames(65536, 1);
        try {
          for (;;)
            link.sendFrames(frames);
        } catch (const CS_Exception& exception) {
          failure = {exception.number(), exception.detail()};
        }
      },
      [&link] { link.end(L"the test is over"); });
}

bool hasRoom(std::intptr_t handle) {
  fd_set sockets;
  FD_ZERO(&sockets);
  FD_SET(native(handle), &sockets);
  timeval now{};
  return ::select(static_cast<int>(handle) + 1, nullptr, &sockets, nullptr, &now) > 0;
}

// Until the socket's sender waits and the window is shut altogether: what little room is left at first, less than a
// segment, is filled when the system has waited in vain for more.
void awaitShutWindow(std::intptr_t sender) {
  constexpr int kEnough = 60;
  int looks = 0;
  for (const Deadline deadline = after(20000); looks < kEnough && std::chrono::steady_clock::now() < deadline;) {
    looks = hasRoom(sender) ? 0 : looks + 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(kEnough, looks) << "the sender never waited";
}

// A peer that sends, to a connection that nobody reads; with a sender here, too, or without. The sockets hold little,
// so that the window is shut: while a byte is still let in, the system itself tells such a peer of the end.
void endWhileThePeerWaits(int bytesOfWindow, bool sendsToo) {
  Patience patience;
  patience.send = std::chrono::seconds(20);  // with the bound of every day the test would take as long to fail
  NarrowPair pair(bytesOfWindow);
  Link peer(std::move(pair.dialed), patience);
  Link held(std::move(pair.accepted), patience);
  std::pair<int, std::wstring> failure;
  std::pair<int, std::wstring> failureHere{kConnectionLost, L"not needed"};
  JoinedThread sending = sendAll(peer, failure);
  JoinedThread sendingHere;
  if (sendsToo) sendingHere = sendAll(held, failureHere);
  awaitShutWindow(pair.dialedHandle);
  if (sendsToo) awaitShutWindow(pair.acceptedHandle);
  held.end(L"not needed");
  sending.join();
  if (sendsToo) sendingHere.join();
  EXPECT_EQ(kConnectionLost, failure.first);
  EXPECT_EQ(std::wstring::npos, failure.second.find(L"takes no more data"));
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"not needed")), failureHere);
  EXPECT_EQ(L"not needed", held.reason());
}

TEST_F(ConnectionTest, APeerThatWaitsInItsSendLearnsAtOnceOfTheEndOfAConnectionThatIsStillHeld) {
  for (const bool sendsToo : {false, true})
    endWhileThePeerWaits(65536, sendsToo);
}

TEST_F(ConnectionTest, SoDoesAPeerWhoseWindowWasShutByAFewBytes) {
  for (const bool sendsToo : {false, true})
    endWhileThePeerWaits(4096, sendsToo);
}

#ifndef _WIN32
TEST_F(ConnectionTest, WhatWasSentLastArrivesThoughAFewBytesOfThePeerWereNotRead) {
  OwnListener listener;
  Socket reading = listener.dial();
  Socket ending = listener.accept();
  const std::vector<unsigned char> crossing(100, 1);
  const std::vector<unsigned char> last(1000000, 2);  // more than is on the way at once
  const Socket::Piece ofReader[] = {crossing};
  const Socket::Piece ofEnding[] = {last};
  reading.send(ofReader);
  ending.send(ofEnding);
  ending.shutdown();
  ending.close();
  std::vector<unsigned char> buffer(65536);
  std::size_t received = 0;
  while (const std::size_t now = reading.receive(buffer, after(20000)).value())
    received += now;
  EXPECT_EQ(last.size(), received);
}
#endif

}  // namespace
