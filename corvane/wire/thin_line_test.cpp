#include "corvane/wire/thin_line.h"

#include "tests/support/corvane/link_fixture.h"
#include "tests/support/joined_thread.h"

#include <algorithm>
#include <atomic>
#include <memory>

namespace {

using namespace corvane;
using namespace std::chrono_literals;

class SendWindowTest : public ::testing::Test {
 protected:
  // Sends as much as has room and lets it be taken after that time; how much it was.
  std::size_t round(std::chrono::milliseconds onTheWay) {
    std::size_t bytes = 0;
    for (; m_window.hasRoom(1000); bytes += 1000)
      m_window.sent(1000, m_now);
    m_now += onTheWay;
    m_taken += static_cast<std::uint32_t>(bytes);
    EXPECT_EQ(m_window.taken(m_taken, m_now), bytes);
    return bytes;
  }

  SendWindow m_window;
  SendWindow::Clock::time_point m_now = SendWindow::Clock::now();
  std::uint32_t m_taken = 0;
};

TEST_F(SendWindowTest, BeginsWith64KibibytesAndHasAlwaysRoomWhenNothingIsOnItsWay) {
  EXPECT_TRUE(m_window.hasRoom(10 * SendWindow::kMost));
  m_window.sent(1000, m_now);
  EXPECT_TRUE(m_window.hasRoom(65536 - 1000));
  EXPECT_FALSE(m_window.hasRoom(65536 - 999));
}

TEST_F(SendWindowTest, GrowsToItsMostWhileWhatItHoldsArrivesPromptly) {
  round(80ms);
  EXPECT_GT(m_window.size(), 2 * SendWindow::kFirst - 3000);
  for (int i = 0; i < 20; ++i)
    round(80ms);
  EXPECT_EQ(m_window.size(), SendWindow::kMost);
}

TEST_F(SendWindowTest, OnAShortLineGrowsToWhatAVeryFastOneHolds) {
  for (const auto& [onTheWay, most] : {std::pair(0ms, 512u), {1ms, 1024u}, {3ms, 2048u}, {7ms, 4096u}, {8ms, 4096u}}) {
    m_window = SendWindow();
    m_taken = 0;
    for (int i = 0; i < 20; ++i)
      round(onTheWay);
    EXPECT_EQ(m_window.size(), most * 1024) << onTheWay.count() << " ms";
  }
}

TEST_F(SendWindowTest, FallsToItsLeastWhileWhatItHoldsArrivesLate) {
  round(80ms);
  for (int i = 0; i < 20; ++i)
    round(80ms + 2 * SendWindow::kTarget);
  EXPECT_EQ(m_window.size(), SendWindow::kLeast);
}

TEST_F(SendWindowTest, StaysWhereWhatItHoldsArrivesAsLateAsItMay) {
  round(80ms);
  const std::size_t before = m_window.size();
  for (int i = 0; i < 20; ++i)
    round(80ms + SendWindow::kTarget);
  EXPECT_EQ(m_window.size(), before);
}

TEST_F(SendWindowTest, FallsByNoMoreThanHalfOfWhatCameLateHoweverLittleWasOnItsWay) {
  round(80ms);
  const std::size_t before = m_window.size();
  EXPECT_EQ(before, SendWindow::kFirst + 65000);
  EXPECT_EQ(round(80ms + SendWindow::kTarget * 7 / 4), 130000u);
  EXPECT_EQ(m_window.size(), before - 65000);
  m_window.sent(1000, m_now);
  m_now += 80ms + SendWindow::kTarget * 5 / 4;
  EXPECT_EQ(m_window.taken(m_taken += 1000, m_now), 1000u);
  EXPECT_EQ(m_window.size(), before - 65000 - 250);
}

TEST_F(SendWindowTest, MeasuresFromWhenSomethingWasSentAlsoWhenMoreHasFollowed) {
  m_window.sent(30000, m_now);
  m_window.sent(30000, m_now + 50ms);
  EXPECT_EQ(m_window.taken(30000, m_now + 100ms), 30000u);
  EXPECT_EQ(m_window.taken(60000, m_now + 150ms), 30000u);
  EXPECT_EQ(m_window.size(), SendWindow::kFirst + 30000);
  m_window.sent(30000, m_now + 200ms);
  m_window.sent(1000, m_now + 390ms);
  EXPECT_EQ(m_window.taken(90000, m_now + 400ms), 30000u);
  EXPECT_EQ(m_window.size(), SendWindow::kFirst + 30000 - 15000) << "it came 100 ms late";
}

TEST_F(SendWindowTest, GrowsWhereThereWasNoRoomForAnotherPieceAndNotWhereThereWas) {
  const std::size_t most = SendWindow::kFirst - ThinLine::kPiece;
  m_window.sent(most, m_now);
  EXPECT_EQ(m_window.taken(most, m_now), most);
  EXPECT_EQ(m_window.size(), SendWindow::kFirst);
  m_window.sent(most + 1, m_now);
  EXPECT_EQ(m_window.taken(2 * most + 1, m_now), most + 1);
  EXPECT_EQ(m_window.size(), SendWindow::kFirst + most + 1);
}

TEST_F(SendWindowTest, DoesNotGrowForAPeerThatIsSentLittle) {
  for (std::uint32_t i = 1; i < 100; ++i) {
    m_window.sent(100, m_now);
    m_now += 10ms;
    EXPECT_EQ(m_window.taken(100 * i, m_now), 100u);
  }
  EXPECT_EQ(m_window.size(), SendWindow::kFirst);
}

TEST_F(SendWindowTest, BelievesThatALineHasBecomeLongerAfterTwoMinutes) {
  round(10ms);
  for (int i = 0; i < 100; ++i)
    round(200ms);
  EXPECT_EQ(m_window.size(), SendWindow::kLeast);
  for (int i = 0; i < 1000; ++i)
    round(200ms);
  EXPECT_EQ(m_window.size(), SendWindow::kMost);
}

TEST_F(SendWindowTest, SendsLittleForAMomentEachMinuteSoThatTheTimeIsMeasuredWithoutWaiting) {
  for (int i = 0; i < 59; ++i)
    round(1s);
  EXPECT_EQ(m_window.size(), SendWindow::kMost);
  round(1s);
  round(1s);
  EXPECT_LE(m_window.size(), 2 * SendWindow::kLeast);
}

TEST_F(SendWindowTest, TakesNoNumberThatCannotBe) {
  m_window.sent(1000, m_now);
  EXPECT_EQ(m_window.taken(1001, m_now), 0u);
  EXPECT_EQ(m_window.taken(0xffffffff, m_now), 0u);
  EXPECT_EQ(m_window.onItsWay(), 1000u);
  EXPECT_EQ(m_window.taken(400, m_now), 400u);
  EXPECT_EQ(m_window.taken(400, m_now), 0u);
  EXPECT_EQ(m_window.taken(399, m_now), 0u);
  EXPECT_EQ(m_window.onItsWay(), 600u);
}

TEST_F(SendWindowTest, CountsOnWhenTheNumberOfThePeerBeginsAgain) {
  constexpr std::uint32_t kMuch = 3000000000;
  m_window.sent(kMuch, m_now);
  EXPECT_EQ(m_window.taken(kMuch, m_now), kMuch);
  m_window.sent(kMuch, m_now);
  EXPECT_EQ(m_window.taken(2 * kMuch, m_now), kMuch);
  EXPECT_EQ(m_window.onItsWay(), 0u);
}

// A line whose other end is a socket of the test, which says what it has taken.
class ThinLineTest : public LinkTest {
 protected:
  ThinLineTest() : LinkTest(1 << 20), m_line(std::shared_ptr<Link>(&m_link, [](Link*) {}), Patience()) {}

  static std::vector<unsigned char> frames(std::size_t size) {
    return frameOf({}, std::vector<unsigned char>(size - kFrameHeaderSize, 'x'));
  }
  void receive(std::size_t size) {
    std::vector<unsigned char> into(size);
    for (std::size_t at = 0; at < size;) {
      const auto count = m_peer.receive(std::span(into).subspan(at), after(20000));
      ASSERT_TRUE(count && *count > 0);
      at += *count;
    }
    m_received.insert(m_received.end(), into.begin(), into.end());
  }

  ThinLine m_line;
  std::vector<unsigned char> m_received;
};

TEST_F(ThinLineTest, HoldsBackWhatHasNoRoomUntilThePeerHasTakenSome) {
  const auto piece = frames(20000);
  for (int i = 0; i < 3; ++i)
    m_line.send(piece);
  EXPECT_TRUE(m_line.isBusy(piece.size()));
  JoinedThread sender([&] { m_line.send(piece); }, [&] { m_line.end(L"over"); });
  receive(60000);
  unsigned char more;
  EXPECT_FALSE(m_peer.receive({&more, 1}, after(50)));
  m_line.taken(20000);
  receive(20000);
  sender.join();
}

TEST_F(ThinLineTest, LetsPiecesGoInTheOrderInWhichTheyWereAskedFor) {
  m_line.send(frames(60000));
  std::vector<JoinedThread> senders;
  for (unsigned char i = 0; i < 8; ++i) {
    senders.emplace_back([this, i] { m_line.send(frameOf({}, std::vector<unsigned char>(30000, i))); },
                         [&] { m_line.end(L"over"); });
    while (m_line.waiting() < i + 1u)
      std::this_thread::yield();
  }
  receive(60000);
  m_received.clear();
  m_line.taken(60000);
  for (std::uint32_t i = 0; i < 8; ++i) {
    receive(30020);
    EXPECT_EQ(m_received.back(), i);
    m_line.taken(60000 + 30020 * (i + 1));
  }
  for (auto& sender : senders)
    sender.join();
}

TEST_F(ThinLineTest, ThatEndsLetsNobodyWait) {
  m_line.send(frames(60000));
  std::atomic<int> failures{0};
  std::vector<JoinedThread> senders;
  for (int i = 0; i < 4; ++i) {
    senders.emplace_back([&] {
      try {
        m_line.send(frames(30000));
      } catch (const CS_Exception& exception) {
        EXPECT_EQ(exception.number(), kConnectionLost);
        EXPECT_STREQ(exception.detail(), L"100%% of them gone for lunch");
        ++failures;
      }
    });
  }
  m_line.end(L"100%% of them gone for lunch");
  m_line.end(L"which is not the first reason");
  for (auto& sender : senders)
    sender.join();
  EXPECT_EQ(failures, 4);
}

TEST_F(ThinLineTest, EndsTheConnectionOfAPeerThatTakesNothingForTooLong) {
  ThinLine line(std::shared_ptr<Link>(&m_link, [](Link*) {}), Patience{100ms, 5s, 25s});
  line.send(frames(60000));
  EXPECT_THROW(line.send(frames(30000)), CS_Exception);
  EXPECT_EQ(m_link.reason(), L"the other side takes no more data: 0 bytes in 100 ms of waiting");
}

TEST_F(ThinLineTest, SendsNoMoreThanItsRateWhichIsTheLowestOfThoseThatWereSet) {
  m_line.limitRate(1000000);
  m_line.limitRate(100000);
  m_line.limitRate(500000);
  m_line.limitRate(0);
  const auto from = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i)
    m_line.send(frames(10000));
  EXPECT_GE(std::chrono::steady_clock::now() - from, 300ms);
  EXPECT_TRUE(m_line.isBusy(1));
}

TEST_F(ThinLineTest, ARateOfNothingSetsNone) {
  m_line.limitRate(0);
  m_line.send(frames(10000));
  EXPECT_FALSE(m_line.isBusy(1));
  receive(10000);
}

// What ThreadSanitizer says of it counts.
TEST_F(ThinLineTest, ARateMayBeSetWhileAJobIsSent) {
  JoinedThread setter([&] {
    for (std::uint64_t rate = 2000000; rate > 1000000; rate -= 1000)
      m_line.limitRate(rate);
  });
  for (int i = 0; i < 3; ++i)
    m_line.send(frames(10000));
  receive(30000);
  setter.join();
}

// With the rate itself each piece would take as many seconds as it has bytes.
TEST_F(ThinLineTest, HoldsNobodyForEverForAPeerThatAsksForNextToNothing) {
  m_line.limitRate(1);
  for (int i = 0; i < 3; ++i)
    m_line.send(frames(1000));
  receive(3000);
}

// Packs by leaving out what is the same as before; enough to see what a lane makes of it.
class Halving : public Packing {
 public:
  std::wstring name() const override { return L"halving"; }
  std::unique_ptr<Unpacker> makeUnpacker() const override { return nullptr; }
  std::unique_ptr<Packer> makePacker() const override {
    class Half : public Packer {
     public:
      explicit Half(const Halving& owner) : m_owner(owner) {}
      bool pack(std::span<const unsigned char> bytes, bool beginsAnew, std::vector<unsigned char>& into) override {
        ++m_owner.asked;
        into.assign(bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() / 2));
        m_owner.begun += beginsAnew ? 1 : 0;
        return m_owner.succeeds;
      }

     private:
      const Halving& m_owner;
    };
    return std::make_unique<Half>(*this);
  }
  mutable int asked = 0, begun = 0;
  bool succeeds = true;
};

class JobLaneTest : public ThinLineTest {
 protected:
  JobLaneTest() : m_lane(std::shared_ptr<ThinLine>(&m_line, [](ThinLine*) {}), &m_packing) {}

  // The frames that come while the lane sends these, all of which the peer takes at once.
  std::vector<Frame> sent(const std::vector<unsigned char>& bytes) { return sentBy(m_lane, bytes); }
  std::vector<Frame> sentBy(JobLane& lane, const std::vector<unsigned char>& bytes) {
    JoinedThread sender(
        [&] {
          lane.send(bytes);
          m_link.sendText(endHeader(), L"end");
        },
        [&] { m_line.end(L"over"); });
    m_frames.clear();
    m_bytes.clear();
    FrameReader reader;
    for (;;) {
      if (const auto frame = reader.next()) {
        if (frame->header.kind == FrameKind::kRelease) break;
        m_taken += static_cast<std::uint32_t>(frame->bytes.size());
        m_line.taken(m_taken);
        m_bytes.push_back(std::make_unique<std::vector<unsigned char>>(frame->bytes.begin(), frame->bytes.end()));
        m_frames.push_back({frame->header, *m_bytes.back()});
      } else if (reader.fill(m_peer, after(20000)) != FrameReader::Fill::kData) {
        ADD_FAILURE() << "nothing more comes";
        return {};
      }
    }
    sender.join();
    return m_frames;
  }
  static FrameHeader endHeader() {
    FrameHeader header;
    header.kind = FrameKind::kRelease;
    return header;
  }
  static std::vector<unsigned char> request(std::size_t size) {
    FrameHeader header;
    header.number = 2;
    header.bridge = 6;
    header.component = 8;
    header.correlation = 9;
    header.flags = kFlagWantsReply;
    std::vector<unsigned char> payload(size);
    for (std::size_t i = 0; i < size; ++i)
      payload[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return frameOf(header, payload);
  }

  Halving m_packing;
  JobLane m_lane;
  std::uint32_t m_taken = 0;
  std::vector<Frame> m_frames;
  std::vector<std::unique_ptr<std::vector<unsigned char>>> m_bytes;
};

TEST_F(JobLaneTest, PacksAJobsFirstPiecesWhateverTheLineAndThenOnlyOnABusyOne) {
  const auto isPacked = [this] {
    const auto frames = sent(request(20000));
    EXPECT_EQ(frames.size(), 1u);
    return frames[0].header.kind == FrameKind::kPacked;
  };
  for (std::uint64_t bytes = 0; bytes < JobLane::kAlwaysPacked; bytes += 20020)
    EXPECT_TRUE(isPacked()) << bytes;
  for (int i = 0; i < 5; ++i)
    EXPECT_FALSE(isPacked()) << i;
  m_line.send(frames(50000));
  receive(50000);
  EXPECT_TRUE(isPacked());
}

TEST_F(JobLaneTest, APackedPieceBelongsToItsBridgeAndTheFirstOneBeginsAnew) {
  const auto frames = sent(request(60000));
  ASSERT_EQ(frames.size(), 3u);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i].header.kind, FrameKind::kPacked);
    EXPECT_EQ(frames[i].header.bridge, 6u);
    EXPECT_EQ(frames[i].header.beginsAnew(), i == 0) << i;
    EXPECT_EQ(frames[i].header.correlation, 0u);
  }
  EXPECT_EQ(m_packing.begun, 1);
}

TEST_F(JobLaneTest, WhatDoesNotBecomeShorterGoesAsItIsAndIsTriedAgainAfterSomePieces) {
  m_packing.succeeds = false;
  std::vector<unsigned char> payload;
  bool more = true;
  for (const Frame& frame : sent(request(60000))) {
    EXPECT_TRUE(more);
    EXPECT_EQ(frame.header.kind, FrameKind::kRequest);
    EXPECT_EQ(frame.header.number, 2);
    EXPECT_EQ(frame.header.component, 8u);
    EXPECT_EQ(frame.header.correlation, 9u);
    EXPECT_TRUE(frame.header.wantsReply());
    EXPECT_LE(frame.bytes.size(), ThinLine::kPiece);
    more = frame.header.hasMore();
    payload.insert(payload.end(), frame.payload().begin(), frame.payload().end());
  }
  EXPECT_FALSE(more);
  EXPECT_EQ(frameOf({}, payload).size(), request(60000).size());
  EXPECT_TRUE(std::equal(payload.begin(), payload.end(), request(60000).begin() + kFrameHeaderSize));
  EXPECT_EQ(m_packing.asked, 1);
  for (int i = 0; i < 6; ++i)
    sent(request(60000));
  EXPECT_EQ(m_packing.asked, 2);
  EXPECT_EQ(m_packing.begun, 2);
}

TEST_F(JobLaneTest, WhatStaysLongIsTriedAfterTwiceAsManyPiecesEachTimeUntilSomeBecomesShorter) {
  std::vector<int> tried;
  int at = 0;
  const auto sendPieces = [&](int count, bool succeeds) {
    m_packing.succeeds = succeeds;
    for (const int end = at + count; at < end; ++at) {
      const int before = m_packing.asked;
      sent(request(2000));
      if (m_packing.asked != before) tried.push_back(at);
    }
  };
  sendPieces(112, false);
  EXPECT_EQ(tried, (std::vector<int>{0, 16, 48}));
  sendPieces(1, true);
  EXPECT_EQ(tried.back(), 112);
  sendPieces(17, false);
  EXPECT_EQ(tried, (std::vector<int>{0, 16, 48, 112, 113, 129}));
}

TEST_F(JobLaneTest, ManyPiecesThatStayLongAreTriedOnceInAThousand) {
  m_packing.succeeds = false;
  for (int i = 0; i < 16 + 32 + 64 + 128 + 256 + 512 + 1024 + 1024; ++i)
    sent(request(10));
  EXPECT_EQ(m_packing.asked, 8);
  sent(request(10));
  EXPECT_EQ(m_packing.asked, 9);
}

TEST(UnpackedPiece, IsAnEighthOfTheWindowOf8KibibytesAtLeastAndOf24AtMost) {
  EXPECT_EQ(ThinLine::unpackedPieceOf(SendWindow::kLeast), 8192u);
  EXPECT_EQ(ThinLine::unpackedPieceOf(SendWindow::kFirst), 8192u);
  EXPECT_EQ(ThinLine::unpackedPieceOf(128 * 1024), 16384u);
  EXPECT_EQ(ThinLine::unpackedPieceOf(SendWindow::kMost), 24576u);
}

TEST_F(JobLaneTest, ShortFramesThatComeTogetherShareAPiece) {
  std::vector<unsigned char> frames;
  for (int i = 0; i < 100; ++i) {
    const auto frame = request(50);
    frames.insert(frames.end(), frame.begin(), frame.end());
  }
  const auto got = sent(frames);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].payload().size(), frames.size() / 2);
}

// The frames of a piece come as one, half as long.
TEST_F(JobLaneTest, ARequestFillsThePieceThatAnEarlierOneHasBegun) {
  const auto sizesOf = [this](std::size_t first, std::size_t second) {
    auto frames = request(first);
    const auto more = request(second);
    frames.insert(frames.end(), more.begin(), more.end());
    std::vector<std::size_t> sizes;
    for (const Frame& frame : sent(frames))
      sizes.push_back(frame.payload().size());
    return sizes;
  };
  EXPECT_EQ(sizesOf(20000, 20000), (std::vector<std::size_t>{12288, 7742}));
  EXPECT_EQ(sizesOf(24535, 1), std::vector<std::size_t>{12288}) << "to its last byte";
  EXPECT_EQ(sizesOf(24536, 1), (std::vector<std::size_t>{12278, 1})) << "no header without a byte of what follows";
}

TEST_F(JobLaneTest, WhatIsNotPackedGoesInPiecesOf24KibibytesAndOf8OnABusyLine) {
  JobLane plain(std::shared_ptr<ThinLine>(&m_line, [](ThinLine*) {}), nullptr);
  auto got = sentBy(plain, request(30000));
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0].bytes.size(), 24576u);
  EXPECT_EQ(got[1].bytes.size(), 30020u + kFrameHeaderSize - 24576);
  m_line.send(frames(50000));
  receive(50000);
  got = sentBy(plain, request(30000));
  ASSERT_GE(got.size(), 2u);
  EXPECT_EQ(got[0].bytes.size(), 8192u);
}

TEST_F(JobLaneTest, AFrameWithoutPayloadGoesThrough) {
  m_packing.succeeds = false;
  const auto got = sent(request(0));
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].header.length, 0u);
  EXPECT_FALSE(got[0].header.hasMore());
}

}  // namespace
