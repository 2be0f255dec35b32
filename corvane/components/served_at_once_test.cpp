#include "corvane/wire/link.h"
#include "tests/support/corvane/echo_fixture.h"

#include <atomic>
#include <thread>

// Which thread serves a request to a component on a bridge.
namespace {

using namespace echo;

// Requests 1 and 2 are served at once, 2 only when it may; 3 is not, and waits as well; 4 is served at once and throws;
// 5 reads nothing. The first three keep their value and their thread.
class Quick : public CS_Component {
 public:
  struct Served {
    int value;
    std::thread::id by;
  };
  static inline std::vector<Served>* served = nullptr;  // guarded by the lock of what was seen

  bool servesAtOnce(int request) const override { return request != 3; }
  bool processRequest(CS_InRequest& request) override {
    if (request.number() == 5) return true;
    const int value = request.readInt();
    if (request.number() == 4) throw CS_Exception(kMissingObject, L"the tray is empty");
    std::unique_lock guard(seen->lock);
    served->push_back({value, std::this_thread::get_id()});
    ++seen->asked;
    seen->changed.notify_all();
    if (request.number() != 1) seen->changed.wait(guard, [] { return seen->mayAnswer; });
    guard.unlock();
    if (!request.wantsReply()) return true;
    request.reply().writeInt(value);
    request.sendReply();
    return true;
  }
  bool release() override {
    const std::lock_guard guard(seen->lock);
    seen->released += 100;  // a Caller adds one
    seen->changed.notify_all();
    return CS_Component::release();
  }
};

class ServedAtOnceTest : public EchoTest {
 protected:
  ServedAtOnceTest() {
    Quick::served = &m_served;
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(L"Quick", new ComponentClass<Quick>(CS_Version(4, 0, 1, 0)));
    server->offerClass(L"Quick");
    m_bridge = m_pair.dialed().getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true)->newInstance(0);
    m_onBridge = makeComponent(*m_bridge, L"Caller", L"Quick");
    m_onConnection = makeComponent(m_pair.dialed(), L"Caller", L"Quick");
  }

  ~ServedAtOnceTest() override {
    letGo();
    CS_Connection::destroy(m_pair.dialedPointer(), true);
    CS_Bridge::waitForThreads(20000);
  }

  static void tell(const CS_RCPtr<CS_Component>& component, int number, int value) {
    CS_OutRequest request(component, number);
    request.writeInt(value);
    request.execute();
  }
  static int ask(const CS_RCPtr<CS_Component>& component, int number, int value) {
    CS_OutRequest request(component, number);
    request.writeInt(value);
    CS_InRequest reply(request);
    request.execute(reply, 20000);
    return reply.readInt();
  }
  void letGo() {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  std::vector<Quick::Served> served() {
    const std::lock_guard guard(m_seen.lock);
    return m_served;
  }
  std::thread::id lastThread() { return served().back().by; }
  std::thread::id reader() {
    EXPECT_EQ(77, ask(m_onConnection, 1, 77));
    return lastThread();
  }
  // Until the bridge's thread waits: it is still on its way there when the peer has its last answer.
  void awaitIdle() {
    const std::thread::id wanted = reader();
    const Deadline end = after(20000);
    do {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << "the reader never serves";
      ASSERT_EQ(5, ask(m_onBridge, 1, 5));
    } while (lastThread() != wanted);
    const std::lock_guard guard(m_seen.lock);
    m_served.clear();
    m_seen.asked = 0;
  }

  // A frame of a request to the component on the bridge.
  std::vector<unsigned char> frameOf(int number, std::uint32_t correlation, std::span<const unsigned char> payload,
                                     std::uint8_t flags) const {
    FrameHeader header;
    header.kind = FrameKind::kRequest;
    header.flags = flags;
    header.number = static_cast<std::uint16_t>(number);
    header.bridge = m_bridge->getIdentifier();
    header.component = m_onBridge->getIdentifier();
    header.correlation = correlation;
    header.length = static_cast<std::uint32_t>(payload.size());
    const EncodedHeader encoded = encodeHeader(header);
    std::vector<unsigned char> frame(encoded.begin(), encoded.end());
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
  }
  static std::vector<unsigned char> payloadOf(int value) {
    ValueWriter writer;
    writer.writeInt(value);
    std::vector<unsigned char> payload;
    writer.forEachPiece([&](ValueWriter::Piece piece) { payload.insert(payload.end(), piece.begin(), piece.end()); });
    return payload;
  }
  void send(const std::vector<unsigned char>& frames) { m_pair.dialed().link()->sendFrames(frames); }

  std::vector<Quick::Served> m_served;
  ConnectionPair m_pair;
  CS_RCPtr<CS_Component> m_bridge, m_onBridge, m_onConnection;
};

TEST_F(ServedAtOnceTest, ByTheReaderWhileTheBridgesThreadHasNothingToDo) {
  awaitIdle();
  const std::thread::id thread = reader();
  for (int i = 0; i < 100; ++i) {
    tell(m_onBridge, 1, i);
    EXPECT_EQ(1000 + i, ask(m_onBridge, 1, 1000 + i));
    EXPECT_EQ(thread, lastThread());
  }
  EXPECT_EQ(201u, served().size());
}

TEST_F(ServedAtOnceTest, EveryOtherRequestIsServedByTheBridgesThreadAndTheReaderGoesOn) {
  awaitIdle();
  m_seen.mayAnswer = false;
  tell(m_onBridge, 3, 1);
  m_seen.waitFor([this] { return m_seen.asked == 1; });
  const std::thread::id other = lastThread();
  EXPECT_NE(other, reader());  // which answers meanwhile
}

TEST_F(ServedAtOnceTest, NoRequestOvertakesOneThatTheBridgesThreadIsIn) {
  awaitIdle();
  m_seen.mayAnswer = false;
  tell(m_onBridge, 3, 0);
  m_seen.waitFor([this] { return m_seen.asked == 1; });
  for (int i = 1; i < 100; ++i)
    tell(m_onBridge, 1, i);
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));  // all of them have been read
  EXPECT_EQ(2u, served().size());
  letGo();
  EXPECT_EQ(100, ask(m_onBridge, 1, 100));
  std::vector<int> values;
  for (const Quick::Served& one : served())
    values.push_back(one.value);
  values.erase(values.begin() + 1);
  ASSERT_EQ(101u, values.size());
  for (int i = 0; i <= 100; ++i)
    EXPECT_EQ(i, values[static_cast<std::size_t>(i)]);
}

TEST_F(ServedAtOnceTest, OfWhatCameTogetherTheReaderServesTheFrontAndTheThreadTheRestInOrder) {
  awaitIdle();
  const std::thread::id thread = reader();
  std::vector<unsigned char> frames;
  const int numbers[] = {1, 1, 3, 1};
  for (int i = 0; i < 4; ++i) {
    const auto frame = frameOf(numbers[i], 900 + static_cast<std::uint32_t>(i), payloadOf(i), 0);
    frames.insert(frames.end(), frame.begin(), frame.end());
  }
  send(frames);
  EXPECT_EQ(9, ask(m_onBridge, 3, 9));
  const auto all = served();
  ASSERT_EQ(6u, all.size());  // the first one is the reader's own
  for (std::size_t i = 1; i < 5; ++i)
    EXPECT_EQ(static_cast<int>(i) - 1, all[i].value);
  EXPECT_EQ(thread, all[1].by);
  EXPECT_EQ(thread, all[2].by);
  EXPECT_NE(thread, all[3].by);
  EXPECT_NE(thread, all[4].by);
}

TEST_F(ServedAtOnceTest, ARequestOfSeveralFramesThatHaveAllCome) {
  awaitIdle();
  const std::thread::id thread = reader();
  const auto payload = payloadOf(4);
  std::vector<unsigned char> frames = frameOf(1, 900, std::span(payload).first(2), kFlagMore);
  const auto rest = frameOf(1, 900, std::span(payload).subspan(2), 0);
  frames.insert(frames.end(), rest.begin(), rest.end());
  send(frames);
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
  const auto all = served();
  ASSERT_EQ(3u, all.size());
  EXPECT_EQ(4, all[1].value);
  EXPECT_EQ(thread, all[1].by);
}

TEST_F(ServedAtOnceTest, ARequestWhoseRestIsStillToComeHoldsNobodyUpAndIsServedWhenItHasCome) {
  awaitIdle();
  const std::thread::id thread = reader();
  const auto payload = payloadOf(4);
  for (std::size_t at = 0; at < payload.size(); ++at) {
    EXPECT_EQ(77, ask(m_onConnection, 1, 77));
    EXPECT_EQ(2u + at, served().size());  // none of them is the one that comes
    send(frameOf(1, 900, std::span(payload).subspan(at, 1), at + 1 < payload.size() ? kFlagMore : 0));
  }
  EXPECT_EQ(9, ask(m_onBridge, 1, 9));
  const auto all = served();
  ASSERT_EQ(8u, all.size());
  EXPECT_EQ(4, all[6].value);
  EXPECT_EQ(thread, all[6].by);
  EXPECT_EQ(thread, all[7].by);
}

TEST_F(ServedAtOnceTest, OnlyTheBeginningOfAShortRequestIsKept) {
  const auto begin = payloadOf(4);
  const auto threadOf = [&](std::size_t bytes) {
    awaitIdle();
    const std::thread::id thread = reader();
    std::vector<unsigned char> payload = begin;
    payload.resize(bytes - 2 * kFrameHeaderSize);
    send(frameOf(1, 900, std::span(payload).first(60000), kFlagMore));
    EXPECT_EQ(77, ask(m_onConnection, 1, 77));
    send(frameOf(1, 900, std::span(payload).subspan(60000), 0));
    EXPECT_EQ(9, ask(m_onBridge, 3, 9));
    const auto all = served();
    EXPECT_EQ(4u, all.size());
    EXPECT_EQ(4, all[2].value);
    return all[2].by == thread;
  };
  EXPECT_TRUE(threadOf(72 * 1024));
  EXPECT_FALSE(threadOf(72 * 1024 + 1));
}

TEST_F(ServedAtOnceTest, WhatComesInTheMiddleOfARequestEndsTheBridgeAlone) {
  awaitIdle();
  const auto payload = payloadOf(4);
  Link::Pending pending(*m_pair.dialed().link(), m_bridge->getIdentifier());
  send(frameOf(5, 900, std::span(payload).first(2), kFlagMore));
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
  makeComponent(*m_bridge, L"Caller", L"Quick");
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"frames of two requests are mixed")),
            failureOf([&] { ask(m_onBridge, 1, 9); }));
  EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
}

TEST_F(ServedAtOnceTest, ARequestThatNeverComesWholeGoesWithTheBridge) {
  awaitIdle();
  const auto payload = payloadOf(4);
  send(frameOf(1, 900, std::span(payload).first(2), kFlagMore));
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
  m_bridge->release();
  m_pair.dialed().removeChild(m_bridge.get());
  FrameHeader header;
  header.kind = FrameKind::kRelease;
  header.component = m_bridge->getIdentifier();
  m_pair.dialed().link()->sendText(header, L"not needed");
  EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  m_seen.waitFor([this] { return m_seen.released / 100 == 1; });
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
  EXPECT_EQ(2u, served().size());
}

TEST_F(ServedAtOnceTest, ARequestThatFailsIsAnsweredAndTheBridgeGoesOn) {
  awaitIdle();
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"the tray is empty")),
            failureOf([this] { ask(m_onBridge, 4, 1); }));
  EXPECT_EQ(6, ask(m_onBridge, 1, 6));
  EXPECT_EQ(lastThread(), reader());
}

TEST_F(ServedAtOnceTest, FramesThatCannotBeServedEndTheBridgeAlone) {
  awaitIdle();
  const auto payload = payloadOf(4);
  std::vector<unsigned char> frames = frameOf(5, 900, std::span(payload).first(2), kFlagMore);
  const auto rest = frameOf(5, 901, std::span(payload).subspan(2), 0);
  frames.insert(frames.end(), rest.begin(), rest.end());
  Link::Pending pending(*m_pair.dialed().link(), m_bridge->getIdentifier());
  send(frames);
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"frames of two requests are mixed")),
            failureOf([&] { pending.wait(after(20000)); }));
  EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  m_seen.waitFor([this] { return m_seen.released / 100 == 1; });
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
}

TEST_F(ServedAtOnceTest, ABridgeThatIsReleasedMeanwhileEndsBehindTheRequest) {
  awaitIdle();
  m_seen.mayAnswer = false;
  tell(m_onBridge, 2, 1);
  tell(m_onBridge, 1, 2);  // not served any more
  m_seen.waitFor([this] { return m_seen.asked == 1; });
  const CS_RCPtr<CS_Component> bridge = m_pair.accepted()->getChild(m_bridge->getIdentifier());
  ASSERT_TRUE(bridge);
  m_pair.accepted()->removeChild(bridge.get());
  bridge->release();
  // The thread must not end: what stands on the bridge would be released beneath the reader.
  EXPECT_FALSE(CS_Bridge::waitForThreads(50));
  EXPECT_EQ(0, m_seen.released / 100);
  letGo();
  EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  m_seen.waitFor([this] { return m_seen.released / 100 == 1; });
  EXPECT_EQ(77, ask(m_onConnection, 1, 77));
  EXPECT_EQ(2u, served().size());
}

}  // namespace
