#include "tests/support/corvane/link_fixture.h"
#include "tests/support/corvane/recorded_sends.h"

#include <atomic>
#include <memory>
#include <thread>

// Which frames leave in one send, and on whose thread.
namespace {

using namespace corvane;

class LinkSendsTest : public ::testing::Test {
 protected:
  static ValueWriter text(std::size_t length) {
    ValueWriter values;
    values.writeText(std::wstring(length, L'x').c_str());
    return values;
  }
  // What a frame with that header and so long a text is on the wire.
  static std::string frame(FrameHeader header, std::size_t length) {
    ValueWriter values = text(length);
    header.length = static_cast<std::uint32_t>(values.size());
    const EncodedHeader encoded = encodeHeader(header);
    std::string bytes(encoded.begin(), encoded.end());
    values.forEachPiece([&](ValueWriter::Piece piece) { bytes.append(piece.begin(), piece.end()); });
    return bytes;
  }
  static FrameHeader asking(std::uint32_t correlation) {
    FrameHeader header;
    header.flags = kFlagWantsReply;
    header.correlation = correlation;
    return header;
  }
  static FrameHeader answering(std::uint32_t correlation) {
    FrameHeader header;
    header.kind = FrameKind::kReply;
    header.correlation = correlation;
    return header;
  }
  std::vector<std::string> sent() {
    std::vector<std::string> bytes;
    for (const auto& send : m_sends.all())
      bytes.push_back(send.bytes);
    return bytes;
  }
  // The first send begins and does not end before letGo().
  void holdFirstSend() {
    m_sends.beforeSend = [this](std::size_t count) {
      if (count != 1) return;
      m_isSending.happen();
      EXPECT_TRUE(m_mayGo.await());
    };
    m_first = std::jthread([this] { m_link.sendAwaited(asking(1), text(1)); });
    ASSERT_TRUE(m_isSending.await());
  }
  void letGo() {
    m_mayGo.happen();
    m_first.join();
  }

  RecordedSends m_sends;
  NarrowPair m_pair{1024 * 1024};
  Link m_link{std::make_unique<RecordingStream>(std::move(m_pair.dialed), m_sends)};
  Happening m_isSending, m_mayGo;
  std::jthread m_first;
};

TEST_F(LinkSendsTest, WhatOthersAskWhileOneSendsIsLeftToItAndLeavesInOneSend) {
  holdFirstSend();
  m_link.sendAwaited(asking(2), text(2));
  m_link.sendAwaited(asking(3), text(3));
  std::jthread([this] { m_link.sendAwaited(asking(4), text(4)); }).join();
  EXPECT_EQ(sent(), std::vector{frame(asking(1), 1)});
  letGo();
  EXPECT_EQ(sent(),
            (std::vector{frame(asking(1), 1), frame(asking(2), 2) + frame(asking(3), 3) + frame(asking(4), 4)}));
  m_link.sendAwaited(asking(5), text(5));
  EXPECT_EQ(sent().back(), frame(asking(5), 5)) << "nobody is left who would send it";
}

TEST_F(LinkSendsTest, WhatIsNotAskedOrLongIsSentByItsOwnThreadBehindWhatWasLeft) {
  holdFirstSend();
  m_link.sendAwaited(asking(2), text(2));
  std::atomic<int> sending{0};
  std::jthread told([&] {
    m_link.send(asking(3), text(3));
    ++sending;
  });
  std::jthread asked([&] {
    m_link.sendAwaited(asking(4), text(Link::kGathered));
    ++sending;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(0, sending);
  letGo();
  told.join();
  asked.join();
  const auto all = m_sends.all();
  ASSERT_EQ(4u, all.size());
  EXPECT_EQ(all[1].bytes, frame(asking(2), 2));
  EXPECT_EQ(all[0].by, all[1].by);
  EXPECT_NE(all[0].by, all[2].by);
  EXPECT_NE(all[2].by, all[3].by);
}

TEST_F(LinkSendsTest, OnlySoMuchIsLeftToASender) {
  holdFirstSend();
  constexpr std::size_t kText = Link::kGathered / 4;  // in bytes a little more than half of what may be left
  m_link.sendAwaited(asking(2), text(kText));
  m_link.sendAwaited(asking(3), text(kText));
  std::atomic<bool> isSent{false};
  std::jthread tooMuch([&] {
    m_link.sendAwaited(asking(4), text(1));
    isSent = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(isSent);
  letGo();
  tooMuch.join();
  const auto all = sent();
  ASSERT_EQ(3u, all.size());
  EXPECT_TRUE(all[1] == frame(asking(2), kText) + frame(asking(3), kText));
  EXPECT_EQ(all[2], frame(asking(4), 1));
}

// It waits for a reply of its own.
TEST_F(LinkSendsTest, AThreadSendsForOthersEightTimesAndNotForEver) {
  std::vector<std::jthread> others;
  m_sends.beforeSend = [&](std::size_t count) {
    if (count > 9) return;
    Happening isLeft;
    others.emplace_back([this, &isLeft, count] {
      const auto correlation = static_cast<std::uint32_t>(count + 1);
      if (count < 9) m_link.sendAwaited(asking(correlation), text(1));
      isLeft.happen();
      if (count == 9) m_link.sendAwaited(asking(correlation), text(1));
    });
    EXPECT_TRUE(isLeft.await());
    // The ninth finds that nothing more may be left, and waits until this thread has sent.
    if (count == 9) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  };
  m_link.sendAwaited(asking(1), text(1));
  others.clear();
  const auto all = m_sends.all();
  ASSERT_EQ(10u, all.size());
  for (std::uint32_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].bytes, frame(asking(i + 1), 1));
    EXPECT_EQ(i < 9, all[i].by == std::this_thread::get_id()) << i;
  }
}

TEST_F(LinkSendsTest, ASendThatFailsFailsEverybodyWhoLeftSomethingToIt) {
  Link::Pending pending(m_link, 0);
  m_sends.beforeSend = [this](std::size_t) {
    m_isSending.happen();
    EXPECT_TRUE(m_mayGo.await());
    throw CS_Exception(kConnectionLost, L"the cable is out");
  };
  std::pair<int, std::wstring> ofSender;
  m_first = std::jthread([&] {
    try {
      m_link.sendAwaited(asking(1), text(1));
    } catch (const CS_Exception& failure) {
      ofSender = {failure.number(), failure.detail()};
    }
  });
  ASSERT_TRUE(m_isSending.await());
  m_link.sendAwaited(asking(pending.correlation()), text(2));
  letGo();
  const std::pair lost(kConnectionLost, std::wstring(L"the cable is out"));
  EXPECT_EQ(lost, ofSender);
  try {
    pending.wait(after(20000));
    FAIL() << "a reply";
  } catch (const CS_Exception& failure) {
    EXPECT_EQ(lost, std::make_pair(failure.number(), std::wstring(failure.detail())));
  }
  EXPECT_EQ(sent(), std::vector{frame(asking(1), 1)});
}

TEST_F(LinkSendsTest, WhatIsGatheredLeavesInOneSend) {
  m_link.gather(answering(1), text(1));
  m_link.gather(answering(2), text(2));
  EXPECT_EQ(0u, sent().size());
  m_link.sendGathered();
  m_link.sendGathered();
  EXPECT_EQ(sent(), std::vector{frame(answering(1), 1) + frame(answering(2), 2)}) << "and none when there is nothing";
}

TEST_F(LinkSendsTest, WhatIsGatheredLeavesInFrontOfTheNextFrame) {
  m_link.gather(answering(1), text(1));
  m_link.send(asking(2), text(2));
  m_link.gather(answering(3), text(3));
  m_link.sendAwaited(asking(4), text(4));
  m_link.gather(answering(5), text(5));
  m_link.gather(answering(6), text(Link::kGathered));
  const auto all = sent();
  ASSERT_EQ(3u, all.size());
  EXPECT_EQ(all[0], frame(answering(1), 1) + frame(asking(2), 2));
  EXPECT_EQ(all[1], frame(answering(3), 3) + frame(asking(4), 4));
  EXPECT_TRUE(all[2] == frame(answering(5), 5) + frame(answering(6), Link::kGathered)) << "too long to be gathered";
}

TEST_F(LinkSendsTest, WhatIsAnnouncedLeavesWithWhatIsGatheredOrWithoutIt) {
  m_link.announce(asking(1), text(1));
  m_link.sendGathered();
  m_link.announce(asking(2), text(2));
  m_link.gather(answering(3), text(3));
  m_link.sendGathered();
  EXPECT_EQ(sent(), (std::vector{frame(asking(1), 1), frame(asking(2), 2) + frame(answering(3), 3)}));
}

TEST_F(LinkSendsTest, OnlySoMuchIsGathered) {
  constexpr std::size_t kText = Link::kGathered / 4;
  m_link.gather(answering(1), text(kText));
  EXPECT_EQ(0u, sent().size());
  m_link.gather(answering(2), text(kText));
  EXPECT_TRUE(sent() == std::vector{frame(answering(1), kText) + frame(answering(2), kText)});
}

TEST_F(LinkSendsTest, NothingIsSentOnALinkThatHasEnded) {
  m_link.end(L"closed for the night");
  m_link.gather(answering(1), text(1));
  EXPECT_THROW(m_link.sendGathered(), CS_Exception);
  EXPECT_THROW(m_link.sendAwaited(asking(2), text(2)), CS_Exception);
  EXPECT_EQ(0u, sent().size());
}

}  // namespace
