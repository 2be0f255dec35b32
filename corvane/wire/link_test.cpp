#include "corvane/wire/link.h"

#include "corvane/components/component_server.h"
#include "tests/support/corvane/link_fixture.h"

#include <new>

namespace {

using namespace corvane;
using namespace std::chrono_literals;

// Time for a thread that has said that it is about to wait: whether it waits already cannot be asked. A test that uses
// it cannot fail for being too early.
void letItWait() {
  std::this_thread::sleep_for(30ms);
}

TEST_F(LinkTest, AReplyOfAnotherBridgeIsNotTheOneThatIsWaitedFor) {
  Link::Pending pending(m_link, 7);
  say(replyTo(pending.correlation(), 9, 1));
  say(replyTo(pending.correlation(), 7, 2));
  m_link.setHandler(&m_taker);
  m_taker.take = [&](const Frame& frame) { m_link.complete(frame); };
  EXPECT_EQ(2, resultOf(pending));
}

TEST_F(LinkTest, TheEndOfABridgeFailsItsOwnWaitersOnly) {
  Link::Pending ended(m_link, 7);
  Link::Pending other(m_link, 9);
  m_link.endBridge(7, L"gone");
  say(replyTo(other.correlation(), 9, 2));
  m_link.setHandler(&m_taker);
  m_taker.take = [&](const Frame& frame) { m_link.complete(frame); };
  EXPECT_EQ(-kConnectionLost, resultOf(ended));
  EXPECT_EQ(2, resultOf(other));
}

TEST_F(LinkTest, AConnectionThatIsCutInAFrameIsNotClosedInOrder) {
  const auto frame = requestFrame(1);
  say(std::span(frame).first(frame.size() - 1));
  m_peer.shutdown();
  EXPECT_EQ(L"the other side closed the connection in the middle of a frame", m_link.serve());
}

TEST_F(LinkTest, AConnectionThatIsClosedBetweenFramesIsClosedInOrder) {
  say(requestFrame(1));
  m_peer.shutdown();
  EXPECT_EQ(kClosedInOrder, m_link.serve());
}

TEST_F(LinkTest, FramesThatCameTogetherAreHandedOverTogether) {
  std::vector<unsigned char> three;
  for (const int value : {1, 2, 3}) {
    const auto frame = requestFrame(static_cast<unsigned char>(value));
    three.insert(three.end(), frame.begin(), frame.end());
  }
  say(three);
  std::vector<int> seen;
  m_taker.take = [&](const Frame& frame) { seen.push_back(frame.payload()[0]); };
  m_link.setHandler(&m_taker);
  m_link.lookForNews();
  EXPECT_EQ((std::vector<int>{1, 2, 3}), seen);
  EXPECT_EQ(1, m_taker.batches());
}

TEST_F(LinkTest, MissingMemoryWhileAFrameIsHandledEndsTheLink) {
  say(requestFrame(1));
  m_link.setHandler(&m_taker);
  m_taker.take = [](const Frame&) { throw std::bad_alloc(); };
  EXPECT_EQ(L"not enough memory", m_link.serve());
  EXPECT_TRUE(m_link.hasEnded());
}

TEST_F(LinkTest, TheEndIsSeenBehindTheLastWordsOfThePeer) {
  const std::vector<unsigned char> payload(60000, 1);
  const auto frame = frameOf({}, payload);
  m_link.setHandler(&m_taker);
  std::jthread peer([&] {
    for (int i = 0; i < 3; ++i)
      say(frame);
    m_peer.shutdown();
  });
  while (!m_link.peerHasClosed()) {
    m_link.lookForNews();
    std::this_thread::yield();
  }
  peer.join();
  m_link.lookForNews();
  EXPECT_TRUE(m_link.hasEnded());
  EXPECT_EQ(3, m_taker.frames());
}

TEST_F(LinkTest, WhoLooksForNewsDoesNotReadBesideTheThreadThatReads) {
  Happening firstCame, hasLooked;
  std::vector<std::thread::id> readers;
  m_taker.take = [&](const Frame& frame) {
    readers.push_back(std::this_thread::get_id());
    m_link.complete(frame);
    if (readers.size() > 1) return;
    firstCame.happen();
    EXPECT_TRUE(hasLooked.await());
  };
  m_link.setHandler(&m_taker);
  Link::Pending pending(m_link, 0);
  std::jthread reader([&] { EXPECT_EQ(5, resultOf(pending)); });
  const std::thread::id readerId = reader.get_id();
  say(requestFrame(1));
  ASSERT_TRUE(firstCame.await());
  say(requestFrame(2));
  say(replyTo(pending.correlation(), 0, 5));
  m_link.lookForNews();  // the reader is busy with the first frame
  hasLooked.happen();
  reader.join();
  EXPECT_EQ(std::vector<std::thread::id>(3, readerId), readers);
}

TEST_F(LinkTest, WhoLookedForNewsLeavesTheReadingToAWaiter) {
  Happening isLooking, isAboutToWait;
  m_taker.take = [&](const Frame& frame) {
    if (frame.header.kind == FrameKind::kReply) return m_link.complete(frame);
    isLooking.happen();
    EXPECT_TRUE(isAboutToWait.await());
    letItWait();
  };
  m_link.setHandler(&m_taker);
  say(requestFrame(1));
  std::jthread looking([&] { m_link.lookForNews(); });
  ASSERT_TRUE(isLooking.await());
  Link::Pending pending(m_link, 0);
  std::jthread waiter([&] {
    isAboutToWait.happen();
    EXPECT_EQ(5, resultOf(pending, 5000));
  });
  looking.join();
  say(replyTo(pending.correlation(), 0, 5));
  waiter.join();
}

TEST_F(LinkTest, WhoHasItsReplyLeavesTheReadingToAWaiter) {
  Happening isRead, isAboutToWait;
  m_taker.take = [&](const Frame& frame) {
    m_link.complete(frame);
    if (m_taker.frames() > 1) return;
    isRead.happen();
    EXPECT_TRUE(isAboutToWait.await());
    letItWait();
  };
  m_link.setHandler(&m_taker);
  Link::Pending first(m_link, 0), second(m_link, 0);
  say(replyTo(first.correlation(), 0, 1));
  std::jthread waiter([&] {
    EXPECT_TRUE(isRead.await());
    isAboutToWait.happen();
    EXPECT_EQ(2, resultOf(second, 5000));
  });
  EXPECT_EQ(1, resultOf(first, 5000));
  say(replyTo(second.correlation(), 0, 2));
  waiter.join();
}

// A thread that waits for a reply while another one reads and is busy with a frame.
class BusyLinkTest : public LinkTest {
 protected:
  BusyLinkTest() {
    m_taker.take = [&](const Frame&) {
      m_isBusy.happen();
      EXPECT_TRUE(m_mayGoOn.await());
    };
    m_link.setHandler(&m_taker);
    say(requestFrame(1));
    m_reader = std::jthread([&] { m_link.serve(); });
    EXPECT_TRUE(m_isBusy.await());
    m_waiter = std::jthread([&] {
      Link::Pending pending(m_link, 7);
      m_isAboutToWait.happen();
      EXPECT_EQ(-kConnectionLost, resultOf(pending, 60000));
      m_hasFailed.happen();
    });
    EXPECT_TRUE(m_isAboutToWait.await());
    letItWait();
  }
  // The waiter learns of it while the reader is still busy.
  void expectFailure() { EXPECT_TRUE(m_hasFailed.await()); }
  ~BusyLinkTest() override {
    m_link.end(L"done");
    m_mayGoOn.happen();
    m_reader.join();
    m_waiter.join();
  }

 private:
  Happening m_isBusy, m_mayGoOn, m_isAboutToWait, m_hasFailed;
  std::jthread m_reader;
  std::jthread m_waiter;
};

TEST_F(BusyLinkTest, AnEndIsKnownToAWaiter) {
  m_link.end(L"done");
  expectFailure();
}

TEST_F(BusyLinkTest, TheEndOfABridgeIsKnownToItsWaiter) {
  m_link.endBridge(7, L"gone");
  expectFailure();
}

// Ends a link when a test is left.
class LinkEnd {
 public:
  explicit LinkEnd(Link& link) : m_link(link) {}
  ~LinkEnd() { m_link.end(L"the test is over"); }
  LinkEnd(const LinkEnd&) = delete;
  LinkEnd& operator=(const LinkEnd&) = delete;

 private:
  Link& m_link;
};

// Several threads send requests of several frames and complete frames, and announce; a narrow socket cuts every send.
// Every frame arrives whole, the frames of one request one behind the other, and what a thread announces before them.
TEST_F(LinkTest, WhatSeveralThreadsSendArrivesFrameByFrameAndRequestByRequest) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 4;
  const auto bytes = unlikeBytes(40 * kMaxFramePayload + 17);
  const auto sendAll = [&](std::uint32_t thread) {
    FrameHeader header;
    header.component = thread;
    for (int round = 0; round < kRounds; ++round) {
      for (int i = 0; i < 50; ++i) {
        header.kind = FrameKind::kCreate;
        ValueWriter name;
        name.writeText(L"a class");
        m_link.announce(header, name);
        header.kind = FrameKind::kRelease;
        m_link.sendFrames(frameOf(header, std::span(bytes).first(1000)));
      }
      header.kind = FrameKind::kRequest;
      ValueWriter values;
      values.writeBytes(bytes.data(), static_cast<int>(bytes.size()));
      m_link.send(header, values);
    }
  };
  std::vector<std::jthread> threads;
  for (std::uint32_t thread = 1; thread <= kThreads; ++thread) {
    threads.emplace_back([&sendAll, thread] {
      try {
        sendAll(thread);
      } catch (const CS_Exception&) {
        // The other end has given up, and says why.
      }
    });
  }
  const LinkEnd end(m_link);  // before the threads are joined
  FrameReader reader;
  std::map<std::uint32_t, int> created, released;
  std::vector<unsigned char> request;
  std::uint32_t sender = 0;  // whose request is arriving
  int requests = 0;
  while (requests < kThreads * kRounds) {
    const auto frame = reader.next();
    if (!frame) {
      ASSERT_EQ(FrameReader::Fill::kData, reader.fill(m_peer, after(20000)));
      continue;
    }
    const FrameHeader& header = frame->header;
    if (header.kind == FrameKind::kRequest) {
      ASSERT_EQ(sender == 0 ? header.component : sender, header.component) << "two requests are mixed";
      sender = header.component;
      request.insert(request.end(), frame->payload().begin(), frame->payload().end());
      if (header.hasMore()) continue;
      ASSERT_EQ(bytes.size() + 5, request.size());
      ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), request.begin() + 5));
      ++requests;
      request.clear();
      sender = 0;
    } else {
      ASSERT_EQ(0u, sender) << "something else comes inside a request";
      if (header.kind == FrameKind::kCreate) {
        ASSERT_EQ(5u + 2 * 7, header.length);
        ++created[header.component];
      } else {
        ASSERT_EQ(FrameKind::kRelease, header.kind);
        ASSERT_TRUE(std::equal(frame->payload().begin(), frame->payload().end(), bytes.begin()));
        ++released[header.component];
        ASSERT_GE(created[header.component], released[header.component]);
      }
    }
  }
  for (auto& thread : threads)
    thread.join();
  for (std::uint32_t thread = 1; thread <= kThreads; ++thread)
    EXPECT_EQ(50 * kRounds, created[thread]);
}

}  // namespace
