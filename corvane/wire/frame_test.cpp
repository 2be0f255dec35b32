#include "corvane/wire/frame.h"

#include "corvane/components/component_server.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/heap_in_use.h"
#include "tests/support/joined_thread.h"
#include "tests/support/own_listener.h"

#include <gtest/gtest.h>

namespace {

using namespace corvane;

TEST(Frame, HeaderHasItsTwentyBytesOnTheWire) {
  FrameHeader header;
  header.length = 0x01020304 & 0xFFFF;
  header.kind = FrameKind::kReply;
  header.flags = kFlagMore;
  header.number = 0x1122;
  header.bridge = 0xA1A2A3A4;
  header.component = 0xB1B2B3B4;
  header.correlation = 0xC1C2C3C4;
  const EncodedHeader expected = {0x04, 0x03, 0,    0,    5,    1,    0x22, 0x11, 0xA4, 0xA3,
                                  0xA2, 0xA1, 0xB4, 0xB3, 0xB2, 0xB1, 0xC4, 0xC3, 0xC2, 0xC1};
  EXPECT_EQ(expected, encodeHeader(header));
  const FrameHeader back = decodeHeader(std::span<const unsigned char, kFrameHeaderSize>(expected));
  EXPECT_EQ(0x0304u, back.length);
  EXPECT_EQ(FrameKind::kReply, back.kind);
  EXPECT_TRUE(back.hasMore());
  EXPECT_FALSE(back.wantsReply());
  EXPECT_EQ(0x1122, back.number);
  EXPECT_EQ(0xA1A2A3A4u, back.bridge);
  EXPECT_EQ(0xB1B2B3B4u, back.component);
  EXPECT_EQ(0xC1C2C3C4u, back.correlation);
}

TEST(Frame, AKindThatDoesNotExistIsRefused) {
  for (const int kind : {0, 11, 255}) {
    EncodedHeader bytes{};
    bytes[4] = static_cast<unsigned char>(kind);
    EXPECT_THROW(decodeHeader(std::span<const unsigned char, kFrameHeaderSize>(bytes)), CS_Exception);
  }
}

TEST(Frame, APayloadPastTheBoundIsRefusedBeforeItIsReceived) {
  FrameHeader header;
  header.length = kMaxFramePayload;
  EXPECT_EQ(kMaxFramePayload,
            decodeHeader(std::span<const unsigned char, kFrameHeaderSize>(encodeHeader(header))).length);
  header.length = kMaxFramePayload + 1;
  const EncodedHeader tooLong = encodeHeader(header);
  EXPECT_THROW(decodeHeader(std::span<const unsigned char, kFrameHeaderSize>(tooLong)), CS_Exception);
}

TEST(FrameReader, FindsFramesHoweverTheyAreCutAndKeepsThoseThatCameTogetherInPlace) {
  CS_ComponentServer::initialize(0, 0);
  std::vector<unsigned char> stream;
  std::vector<std::size_t> lengths;
  for (std::size_t length : {0u, 1u, 20u, 65536u, 3u, 65536u, 65535u, 40000u}) {
    FrameHeader header;
    header.length = static_cast<std::uint32_t>(length);
    header.correlation = static_cast<std::uint32_t>(lengths.size() + 1);
    const EncodedHeader encoded = encodeHeader(header);
    stream.insert(stream.end(), encoded.begin(), encoded.end());
    stream.insert(stream.end(), length, static_cast<unsigned char>(lengths.size()));
    lengths.push_back(length);
  }
  for (const std::size_t cut : {1u, 7u, 19u, 21u, 4096u, 70000u, 1000000u}) {
    OwnListener listener;
    Socket dialed = listener.dial();
    Socket socket = listener.accept();
    JoinedThread sender(
        [&] {
          Socket sending = std::move(dialed);  // closed at the end of the stream
          for (std::size_t at = 0; at < stream.size(); at += cut) {
            const Socket::Piece pieces[] = {std::span(stream).subspan(at, std::min(cut, stream.size() - at))};
            sending.send(pieces);
            if (cut < 100 && at > 2000) break;  // the small cuts have shown what they can
          }
        },
        [&] { socket.shutdown(); });
    FrameReader reader;
    std::size_t seen = 0;
    for (;;) {
      const auto fill = reader.fill(socket, after(20000));
      ASSERT_NE(FrameReader::Fill::kTimedOut, fill);
      if (fill == FrameReader::Fill::kClosed) break;
      std::vector<Frame> batch;
      while (auto frame = reader.next())
        batch.push_back(*frame);
      // All frames of one receive stay valid until the next one.
      for (const Frame& frame : batch) {
        ASSERT_EQ(lengths[seen], frame.payload().size());
        ASSERT_EQ(seen + 1, frame.header.correlation);
        for (const unsigned char byte : frame.payload())
          ASSERT_EQ(seen, byte);
        ++seen;
      }
    }
    sender.join();
    EXPECT_GE(seen, cut < 100 ? 3u : lengths.size());
  }
}

// Gives what it is told, and keeps how much it was asked for.
class ScriptedStream final : public Stream {
 public:
  std::vector<unsigned char> coming;
  std::size_t atMost = 0;  // that comes with the next receive
  std::vector<std::size_t> rooms;

  void setPatience(const Patience&) override {}
  void send(std::span<const Piece>) override {}
  bool hasRoom() const noexcept override { return true; }
  std::optional<std::size_t> receive(std::span<unsigned char> buffer, std::optional<Deadline>) override {
    rooms.push_back(buffer.size());
    const std::size_t count = std::min({buffer.size(), atMost, coming.size()});
    std::copy_n(coming.begin(), count, buffer.begin());
    coming.erase(coming.begin(), coming.begin() + static_cast<std::ptrdiff_t>(count));
    return count;
  }
  void shutdown() noexcept override {}
  void close() noexcept override {}
  bool peerHasClosed() const noexcept override { return false; }
  std::string peerName() const override { return "nobody"; }
  std::vector<unsigned char> localEndpoint() const override { return {}; }
  std::vector<unsigned char> peerEndpoint() const override { return {}; }
};

class FrameReaderRoomTest : public ::testing::Test {
 protected:
  // Receives at most that much once; the payloads of the frames that are complete then.
  std::vector<std::size_t> receive(std::size_t atMost) {
    m_stream.atMost = atMost;
    EXPECT_EQ(FrameReader::Fill::kData, m_reader.fill(m_stream, std::nullopt));
    std::vector<std::size_t> lengths;
    while (const auto frame = m_reader.next()) {
      lengths.push_back(frame->payload().size());
      for (const unsigned char byte : frame->payload())
        EXPECT_EQ(static_cast<unsigned char>(frame->header.correlation), byte);
    }
    return lengths;
  }
  void expectFrame(std::uint32_t length) {
    FrameHeader header;
    header.length = length;
    header.correlation = ++m_frames;
    const EncodedHeader encoded = encodeHeader(header);
    m_stream.coming.insert(m_stream.coming.end(), encoded.begin(), encoded.end());
    m_stream.coming.insert(m_stream.coming.end(), length, static_cast<unsigned char>(m_frames));
  }
  // A buffer as large as it becomes.
  void grow() {
    for (int i = 0; i < 5; ++i)
      expectFrame(65536);
    while (!m_stream.coming.empty())
      receive(1000000);
  }
  std::size_t room() const { return m_stream.rooms.back(); }

  ScriptedStream m_stream;
  FrameReader m_reader;
  std::uint32_t m_frames = 0;
};

TEST_F(FrameReaderRoomTest, TheBufferGrowsInTwoSteps) {
  grow();
  EXPECT_EQ(2048u, m_stream.rooms[0]);
  EXPECT_EQ(16384u - 2048, m_stream.rooms[1]);
  EXPECT_EQ(264u * 1024 - 16384, m_stream.rooms[2]);
  expectFrame(0);
  receive(1);
  EXPECT_EQ(264u * 1024, room());
}

TEST_F(FrameReaderRoomTest, ABufferThatHoldsNothingIsGivenBackWithItsMemory) {
  const std::size_t before = heapInUse();
  if (before == 0) GTEST_SKIP() << "the memory in use cannot be asked for here";
  grow();
  EXPECT_LE(before + 264 * 1024, heapInUse());
  m_stream.coming = std::vector<unsigned char>();
  m_reader.letGo();
  EXPECT_GT(before + 16 * 1024, heapInUse());
  expectFrame(0);
  EXPECT_EQ((std::vector<std::size_t>{0}), receive(100));
  EXPECT_EQ(2048u, room());
}

TEST_F(FrameReaderRoomTest, ABufferThatHoldsPartOfAFrameIsKept) {
  expectFrame(10);
  EXPECT_EQ((std::vector<std::size_t>{}), receive(25));
  m_reader.letGo();
  EXPECT_EQ((std::vector<std::size_t>{10}), receive(100));
}

TEST_F(FrameReaderRoomTest, OfALongFrameTheRestAndLittleBehindItIsReceivedSoThatItIsNotMoved) {
  grow();
  for (int i = 0; i < 4; ++i)
    expectFrame(65517);
  expectFrame(19);
  expectFrame(65517);
  EXPECT_EQ((std::vector<std::size_t>{65517}), receive(100000));
  EXPECT_EQ((std::vector<std::size_t>{65517}), receive(1000000));
  EXPECT_EQ(2u * (65517 + 20) - 100000 + 4096, room());
  // Little of the next one was moved to the front, in front of all the room.
  EXPECT_EQ((std::vector<std::size_t>{65517, 65517, 19, 65517}), receive(1000000));
  EXPECT_EQ(264u * 1024 - 4096, room());
}

TEST_F(FrameReaderRoomTest, AShortRestIsMovedToTheFrontAndEverythingReceivedBehindIt) {
  grow();
  expectFrame(30000);
  expectFrame(30000);
  EXPECT_EQ((std::vector<std::size_t>{30000}), receive(30020 + 16383));
  EXPECT_EQ((std::vector<std::size_t>{30000}), receive(1000000));
  EXPECT_EQ(264u * 1024 - 16383, room());
}

TEST_F(FrameReaderRoomTest, ALongFrameThatDoesNotFitBehindTheOthersIsMovedAllTheSame) {
  grow();
  for (const std::uint32_t length : {65536u, 65536u, 65536u, 10000u, 65536u})
    expectFrame(length);
  EXPECT_EQ((std::vector<std::size_t>{65536, 65536, 65536, 10000}), receive(3 * 65556 + 10020 + 20000));
  EXPECT_EQ((std::vector<std::size_t>{65536}), receive(1000000));
  EXPECT_EQ(264u * 1024 - 20000, room());
}

}  // namespace
