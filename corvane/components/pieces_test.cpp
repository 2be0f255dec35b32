#include "corvane/base/limits.h"
#include "corvane/wire/link.h"
#include "tests/support/corvane/piece_keeper.h"

#include <algorithm>

// How long the pieces stay that a request was given.
namespace {

using namespace echo;

class PiecesTest : public EchoTest {
 protected:
  PiecesTest() {
    Keeper::record = &m_record;
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(L"Keeper", new ComponentClass<Keeper>(CS_Version(4, 0, 1, 0)));
    server->offerClass(L"Keeper");
    m_bridge = m_pair.dialed().getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true)->newInstance(0);
    m_onBridge = makeComponent(*m_bridge, L"Caller", L"Keeper");
    m_other = makeComponent(*m_bridge, L"Caller", L"Keeper");
    m_onConnection = makeComponent(m_pair.dialed(), L"Caller", L"Keeper");
    m_ping = makeComponent(m_pair.dialed(), L"Caller", L"Server");
    for (const auto& component : {m_onBridge, m_other, m_onConnection})
      askInt(component, 3);
    awaitIdle();
  }
  ~PiecesTest() override {
    {
      const std::lock_guard guard(m_seen.lock);
      m_seen.mayAnswer = true;
      m_seen.changed.notify_all();
    }
    CS_Connection::destroy(m_pair.dialedPointer(), true);
    m_pair.join();
    CS_Bridge::waitForThreads(20000);
  }

  // Until the bridge's thread waits, so that the reader serves.
  void awaitIdle() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    do {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the reader never serves";
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      forget();
      send({frame(m_onBridge, 1, 1), frame(m_onBridge, 1, 1)});
      awaitRequests(2);
    } while (lets() != std::vector<std::size_t>{2});
    forget();
  }
  // The frames of a request with a block of so many bytes.
  std::vector<unsigned char> frame(const CS_RCPtr<CS_Component>& component, int number, std::size_t length) {
    std::vector<unsigned char> block(length);
    std::generate(block.begin(), block.end(), [this] { return static_cast<unsigned char>(++m_byte % 251); });
    ValueWriter values;
    values.writeBytes(block.data(), static_cast<int>(block.size()));
    std::vector<unsigned char> payload, frames;
    values.forEachPiece([&](ValueWriter::Piece piece) { payload.insert(payload.end(), piece.begin(), piece.end()); });
    for (std::span<const unsigned char> rest(payload); !rest.empty();) {
      const auto now = rest.first(std::min(rest.size(), kMaxFramePayload));
      rest = rest.subspan(now.size());
      FrameHeader header;
      header.number = static_cast<std::uint16_t>(number);
      header.flags = rest.empty() ? 0 : kFlagMore;
      header.bridge = component.get() == m_onConnection.get() ? 0 : m_bridge->getIdentifier();
      header.component = component->getIdentifier();
      header.correlation = 100;
      header.length = static_cast<std::uint32_t>(now.size());
      const EncodedHeader encoded = encodeHeader(header);
      frames.insert(frames.end(), encoded.begin(), encoded.end());
      frames.insert(frames.end(), now.begin(), now.end());
    }
    return frames;
  }
  void send(std::initializer_list<std::vector<unsigned char>> all) {
    std::vector<unsigned char> frames;
    for (const auto& each : all)
      frames.insert(frames.end(), each.begin(), each.end());
    m_pair.dialed().link()->sendFrames(frames);
  }
  // Until the pieces of so many requests were let go.
  void awaitRequests(std::size_t count) {
    m_seen.waitFor([&] {
      std::size_t all = 0;
      for (const std::size_t each : m_record.lets)
        all += each;
      return all >= count;
    });
  }
  std::vector<std::size_t> lets() {
    const std::lock_guard guard(m_seen.lock);
    EXPECT_EQ(0, m_record.changed);
    return m_record.lets;
  }
  void forget() {
    const std::lock_guard guard(m_seen.lock);
    m_record.lets.clear();
  }

  Keeper::Record m_record;
  unsigned m_byte = 0;
  ConnectionPair m_pair;
  CS_RCPtr<CS_Component> m_bridge, m_onBridge, m_other, m_onConnection, m_ping;
};

using Lets = std::vector<std::size_t>;

TEST_F(PiecesTest, OfRequestsThatAreServedAtOnceTogetherStayUntilTheLastIsServed) {
  send({frame(m_onBridge, 1, 100), frame(m_onBridge, 1, 200), frame(m_onBridge, 1, 300)});
  awaitRequests(3);
  EXPECT_EQ(Lets{3}, lets());
}

TEST_F(PiecesTest, StayUntilAnotherComponentIsServed) {
  send({frame(m_onBridge, 1, 1), frame(m_other, 1, 1), frame(m_other, 1, 1), frame(m_onBridge, 1, 1)});
  awaitRequests(4);
  EXPECT_EQ((Lets{1, 2, 1}), lets());
}

TEST_F(PiecesTest, OfAComponentOnTheConnectionStayUntilItsRequestIsServed) {
  send({frame(m_onConnection, 1, 10), frame(m_onConnection, 1, 10)});
  awaitRequests(2);
  EXPECT_EQ((Lets{1, 1}), lets());
  send({frame(m_onConnection, 1, 500000)});
  awaitRequests(3);
  EXPECT_EQ((Lets{1, 1, 1}), lets()) << "also of one that was collected from several frames";
}

// Each run that its thread takes replaces the one before, in the middle of a request as well.
TEST_F(PiecesTest, ThatTheBridgesThreadHasStayUntilItTakesWhatCameNext) {
  m_seen.mayAnswer = false;
  ValueWriter nothing;
  FrameHeader header;
  header.number = 3;
  header.bridge = m_bridge->getIdentifier();
  header.component = m_onBridge->getIdentifier();
  header.correlation = 7;
  m_pair.dialed().link()->send(header, nothing);
  m_seen.waitFor([this] { return m_seen.asked == 4; });
  const auto large = frame(m_onBridge, 2, 190000);
  for (std::span<const unsigned char> rest(large); !rest.empty();) {
    const auto now = rest.first(std::min(rest.size(), kFrameHeaderSize + kMaxFramePayload));
    rest = rest.subspan(now.size());
    m_pair.dialed().link()->sendFrames(now);
    ASSERT_EQ(14, twice(m_ping, 7)) << "the reader has not delivered it";
  }
  send({frame(m_onBridge, 2, 10)});
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  awaitRequests(2);
  EXPECT_GE(lets().size(), 3u) << "one for each of the first runs";
}

TEST_F(PiecesTest, AreLetGoWhenTheBridgesThreadEnds) {
  m_seen.mayAnswer = false;
  send({frame(m_onBridge, 2, 10), frame(m_onBridge, 3, 1)});
  m_seen.waitFor([this] { return m_seen.asked == 4; });
  CS_RCPtr<CS_Component> bridge = m_pair.accepted()->getChild(m_bridge->getIdentifier());
  ASSERT_TRUE(bridge);
  m_pair.accepted()->removeChild(bridge.get());
  bridge->release();
  bridge = nullptr;
  {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  awaitRequests(1);
  EXPECT_EQ(Lets{1}, lets());
}

TEST_F(PiecesTest, AreLetGoWhenTheRequestThatFollowsEndsTheBridge) {
  const std::vector<unsigned char> broken = frame(m_onBridge, 4, 2 * kMaxFramePayload);
  const std::vector<unsigned char> front(broken.begin(), broken.begin() + kFrameHeaderSize + kMaxFramePayload);
  auto stranger = frame(m_onBridge, 4, 10);
  storeLittleEndian32(&stranger[16], 101);
  send({frame(m_onBridge, 1, 100), front, stranger});
  awaitRequests(1);
  EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  EXPECT_EQ(0, m_record.changed);
}

TEST_F(PiecesTest, KeepNoComponentThatThePeerHasLetGo) {
  send({frame(m_other, 1, 1), frame(m_onConnection, 1, 1)});
  awaitRequests(2);
  m_other->releasePeer();
  m_other = nullptr;
  m_onConnection->releasePeer();
  m_onConnection = nullptr;
  m_seen.waitFor([this] { return m_record.alive == 1; });
}

}  // namespace
