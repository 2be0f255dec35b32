// A bridge that is routed over a long line, and what a peer gets for packed frames that are none.

#include "compression/deflate.h"
#include "corvane/wire/link.h"
#include "corvane/wire/thin_line.h"
#include "tests/support/corvane/piece_keeper.h"

#include <random>

namespace {

using namespace echo;
using Bytes = std::vector<unsigned char>;

// Two bytes of three are a count, so that what is missing or in the wrong order shows.
Bytes document(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>(i % 3 == 0 ? 'x' : i / 3 >> (i % 3 == 1 ? 0 : 8));
  return bytes;
}

Bytes noise(std::size_t size) {
  std::mt19937 random(3);
  Bytes bytes(size);
  for (auto& byte : bytes)
    byte = static_cast<unsigned char>(random());
  return bytes;
}

class PackedBridgeTest : public EchoTest {
 protected:
  explicit PackedBridgeTest(const Packing* ofClient = &compression::deflate())
      : m_client(CS_Connection::Line{ofClient, 0}) {
    m_clientServer = JoinedThread([this] { m_clientReason = m_client.dialed().serve(); },
                                  [this] { CS_Connection::destroy(m_client.dialedPointer(), true); });
    m_bridge = m_monitor.dialed()
                   .getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true)
                   ->newInstance(0);
    const auto probe = makeComponent(m_monitor.dialed(), L"Caller", L"Server");
    twice(probe, 1);
    m_router = m_monitor.accepted()->getChild(m_bridge->getIdentifier());
    auto* router = dynamic_cast<CS_BridgeRouter*>(m_router.get());
    EXPECT_EQ(CS_BridgeRouter::Routing::kMade, router->routeTo(m_client.accepted()));
    m_component = makeComponent(*m_bridge, L"Caller", L"Server");
  }
  ~PackedBridgeTest() override {
    CS_Connection::destroy(m_client.dialedPointer(), true);
    m_clientServer.join();
  }

  // Sends the block and says whether the other end got the same bytes.
  bool arrives(const Bytes& block) {
    const std::size_t before = m_seen.bytes;
    m_seen.sum = 0;
    unsigned sum = 0;
    for (const unsigned char byte : block)
      sum += byte;
    sendBlock(m_component, block);
    return askInt(m_component, 3) == static_cast<int>(before + block.size()) && m_seen.sum == sum;
  }

  ConnectionPair m_client;
  JoinedThread m_clientServer;
  std::wstring m_clientReason;
  ConnectionPair m_monitor;
  CS_RCPtr<CS_Component> m_bridge;
  CS_RCPtr<CS_Component> m_router;
  CS_RCPtr<CS_Component> m_component;
};

TEST_F(PackedBridgeTest, RequestsArriveWholeWhetherTheyBecomeShorterOrNot) {
  EXPECT_EQ(14, twice(m_component, 7));
  EXPECT_TRUE(arrives(document(700000)));
  EXPECT_TRUE(arrives(noise(700000)));
  EXPECT_TRUE(arrives(document(700000)));
  for (int i = 0; i < 500; ++i)
    EXPECT_TRUE(arrives({static_cast<unsigned char>(i), 1, 2}));
}

TEST_F(PackedBridgeTest, ARefusalOfTheClientComesBackAsOne) {
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the tray is empty")),
            failureOf([&] { askInt(m_component, 4); }));
  EXPECT_EQ(2, twice(m_component, 1));
}

// The server's side of the client's connection says it; the client has taken the offer of nobody else.
class PackedFrameTest : public PackedBridgeTest {
 protected:
  static Bytes packedFrame(const Bytes& packed, std::uint32_t bridge) {
    FrameHeader header;
    header.kind = FrameKind::kPacked;
    header.flags = kFlagBeginsAnew;
    header.bridge = bridge;
    header.length = static_cast<std::uint32_t>(packed.size());
    const EncodedHeader encoded = encodeHeader(header);
    Bytes frame(encoded.begin(), encoded.end());
    frame.insert(frame.end(), packed.begin(), packed.end());
    return frame;
  }
  void sendPacked(const Bytes& packed, std::uint32_t bridge) {
    m_client.accepted()->link()->sendFrames(packedFrame(packed, bridge));
  }
  Bytes packed(const Bytes& bytes) {
    Bytes into;
    EXPECT_TRUE(compression::deflate().makePacker()->pack(bytes, true, into));
    return into;
  }
  // The bridge that the job stands on, at the client.
  std::uint32_t bridge() {
    EXPECT_EQ(2, twice(m_component, 1));
    for (std::uint32_t id = 2; id < 100; id += 2) {
      if (m_client.dialed().getChild(id)) return id;
    }
    ADD_FAILURE() << "the client has no bridge";
    return 0;
  }
  void expectOnlyTheBridgeIsLetGo() {
    const auto failure = failureOf([&] { twice(m_component, 1); });
    // The end may come while the answer is waited for, or before it is asked for.
    const bool isGone = failure.second == L"the bridge does not exist any more";
    EXPECT_EQ(failure.first, isGone ? kRequestRefused : kConnectionLost) << toUtf8(failure.second);
    EXPECT_TRUE(m_client.dialed().isConnected());
  }
};

// They lie in a buffer that the next one is unpacked into.
TEST_F(PackedFrameTest, WhatARequestHasReadFromOneStaysUntilTheNextIsUnpacked) {
  Keeper::Record record;
  Keeper::record = &record;
  CS_ComponentServer::getServer()->registerClass(L"Keeper", new ComponentClass<Keeper>(CS_Version(4, 0, 1, 0)));
  CS_ComponentServer::getServer()->offerClass(L"Keeper");
  auto keeper = makeComponent(*m_bridge, L"Caller", L"Keeper");
  ASSERT_EQ(0, askInt(keeper, 3));
  Bytes both;
  for (const unsigned char byte : {'a', 'b'}) {
    ValueWriter values;
    const Bytes block(1000, byte);
    values.writeBytes(block.data(), static_cast<int>(block.size()));
    FrameHeader header;
    header.number = 2;
    header.bridge = bridge();
    header.component = keeper->getIdentifier();
    header.correlation = 70;
    header.length = static_cast<std::uint32_t>(values.size());
    const EncodedHeader encoded = encodeHeader(header);
    Bytes request(encoded.begin(), encoded.end());
    values.forEachPiece([&](ValueWriter::Piece piece) { request.insert(request.end(), piece.begin(), piece.end()); });
    const Bytes frame = packedFrame(packed(request), header.bridge);
    both.insert(both.end(), frame.begin(), frame.end());
  }
  m_client.accepted()->link()->sendFrames(both);
  m_seen.waitFor([&] { return record.lets.size() == 2; });
  EXPECT_EQ(record.changed, 0);
  EXPECT_EQ(record.lets, (std::vector<std::size_t>{1, 1}));
  keeper = nullptr;
  CS_Connection::destroy(m_monitor.dialedPointer(), true);
  m_seen.waitFor([&] { return record.alive == 0; });
}

TEST_F(PackedFrameTest, BytesThatWereNotPackedEndTheirBridgeOnly) {
  sendPacked(Bytes(100, 0xff), bridge());
  expectOnlyTheBridgeIsLetGo();
}

TEST_F(PackedFrameTest, OneThatBecomesTooMuchEndsItsBridgeOnly) {
  sendPacked(packed(Bytes(10 * kMaxUnpackedPiece, 'a')), bridge());
  expectOnlyTheBridgeIsLetGo();
}

TEST_F(PackedFrameTest, FramesThatAreCutInItEndTheirBridgeOnly) {
  FrameHeader header;
  header.length = 5000;
  const EncodedHeader encoded = encodeHeader(header);
  Bytes cut(encoded.begin(), encoded.end());
  cut.resize(cut.size() + 4999);
  sendPacked(packed(cut), bridge());
  expectOnlyTheBridgeIsLetGo();
}

TEST_F(PackedFrameTest, PackedFramesInAPackedOneEndTheirBridgeOnly) {
  FrameHeader header;
  header.kind = FrameKind::kPacked;
  header.length = 500;
  const EncodedHeader encoded = encodeHeader(header);
  Bytes nested(encoded.begin(), encoded.end());
  nested.resize(nested.size() + 500);
  sendPacked(packed(nested), bridge());
  expectOnlyTheBridgeIsLetGo();
}

TEST_F(PackedFrameTest, OneThatWasNotAgreedOnEndsItsConnection) {
  FrameHeader header;
  header.kind = FrameKind::kPacked;
  header.bridge = m_bridge->getIdentifier();
  const EncodedHeader encoded = encodeHeader(header);
  m_monitor.dialed().link()->sendFrames(encoded);
  EXPECT_EQ(m_monitor.join(), L"a packed frame, which was not agreed on");
}

class UnpackedLineTest : public PackedBridgeTest {
 protected:
  UnpackedLineTest() : PackedBridgeTest(nullptr) {}
};

TEST_F(UnpackedLineTest, WithoutAPackingTheFramesGoAsTheyAreInPieces) {
  EXPECT_TRUE(arrives(document(3000000)));
  EXPECT_LE(m_seen.largestPiece, ThinLine::kPiece);
}

}  // namespace
