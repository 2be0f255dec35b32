#include "corvane/base/limits.h"
#include "corvane/wire/link.h"
#include "tests/support/corvane/echo_fixture.h"
#include "tests/support/corvane/recorded_sends.h"

// Which answers leave in one send, and what none of them waits for.
namespace {

using namespace echo;

// Doubles a number (1); waits until it may answer (6).
class Together : public Server {
 public:
  bool answersTogether(int request) const override { return request == 1; }
};

// Waits while it is made.
class Slow : public Server {
 public:
  bool initialize() override {
    std::unique_lock guard(seen->lock);
    seen->changed.wait(guard, [] { return seen->mayAnswer; });
    return true;
  }
};

// Waits while it is let go.
class Sticky : public Server {
 public:
  bool release() override {
    std::unique_lock guard(seen->lock);
    seen->changed.wait(guard, [] { return seen->mayAnswer; });
    return true;
  }
};

class AnswersTogetherTest : public EchoTest {
 protected:
  AnswersTogetherTest() {
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(L"Together", new ComponentClass<Together>(CS_Version(4, 0, 1, 0)));
    server->registerClass(L"Slow", new ComponentClass<Slow>(CS_Version(4, 0, 1, 0)));
    server->registerClass(L"Sticky", new ComponentClass<Sticky>(CS_Version(4, 0, 1, 0)));
    for (const wchar_t* name : {L"Together", L"Slow", L"Sticky"})
      server->offerClass(name);
    m_component = makeComponent(m_pair.dialed(), L"Caller", L"Together");
    EXPECT_EQ(14, twice(m_component, 7));
    m_sends.clear();
  }
  ~AnswersTogetherTest() override { letGo(); }

  void letGo() {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }
  Link& link() { return *m_pair.dialed().link(); }

  static std::vector<unsigned char> bytesOf(FrameHeader header, const ValueWriter& values) {
    header.length = static_cast<std::uint32_t>(values.size());
    const EncodedHeader encoded = encodeHeader(header);
    std::vector<unsigned char> frame(encoded.begin(), encoded.end());
    values.forEachPiece([&](ValueWriter::Piece piece) { frame.insert(frame.end(), piece.begin(), piece.end()); });
    return frame;
  }
  static FrameHeader asking(const CS_RCPtr<CS_Component>& component, int number, const Link::Pending& pending) {
    FrameHeader header;
    header.flags = kFlagWantsReply;
    header.number = static_cast<std::uint16_t>(number);
    header.component = component->getIdentifier();
    header.correlation = pending.correlation();
    return header;
  }
  std::vector<unsigned char> question(int number, int value, const Link::Pending& pending) {
    ValueWriter values;
    values.writeInt(value);
    return bytesOf(asking(m_component, number, pending), values);
  }
  // The frames of all, sent at once, so that they come together.
  void say(std::initializer_list<std::vector<unsigned char>> all) {
    std::vector<unsigned char> frames;
    for (const auto& each : all)
      frames.insert(frames.end(), each.begin(), each.end());
    link().sendFrames(frames);
  }
  static int answerOf(Link::Pending& pending) {
    ValueReader values(pending.wait(after(20000)));
    return values.readInt();
  }
  std::size_t sends() { return m_sends.all().size(); }

  RecordedSends m_sends;
  ConnectionPair m_pair{
      {}, [this](Socket socket) { return std::make_unique<RecordingStream>(std::move(socket), m_sends); }};
  CS_RCPtr<CS_Component> m_component;
};

TEST_F(AnswersTogetherTest, ThoseToRequestsThatCameTogetherLeaveInOneSendInTheirOrder) {
  Link::Pending first(link(), 0), second(link(), 0), third(link(), 0);
  say({question(1, 1, first), question(1, 2, second), question(1, 3, third)});
  EXPECT_EQ(2, answerOf(first));
  EXPECT_EQ(4, answerOf(second));
  EXPECT_EQ(6, answerOf(third));
  ASSERT_EQ(1u, sends());
  const std::string bytes = m_sends.all()[0].bytes;
  EXPECT_EQ(3 * (kFrameHeaderSize + 5), bytes.size());
  EXPECT_EQ(first.correlation(), loadLittleEndian32(reinterpret_cast<const unsigned char*>(&bytes[16])));
}

TEST_F(AnswersTogetherTest, OfAnotherComponentEachLeavesByItself) {
  m_component = makeComponent(m_pair.dialed(), L"Caller", L"Server");
  ASSERT_EQ(14, twice(m_component, 7));
  m_sends.clear();
  Link::Pending first(link(), 0), second(link(), 0);
  say({question(1, 1, first), question(1, 2, second)});
  EXPECT_EQ(2, answerOf(first));
  EXPECT_EQ(4, answerOf(second));
  EXPECT_EQ(2u, sends());
}

TEST_F(AnswersTogetherTest, NoneWaitsForARequestBehindItThatTakesItsTime) {
  m_seen.mayAnswer = false;
  Link::Pending first(link(), 0), second(link(), 0);
  say({question(1, 1, first), question(6, 0, second)});
  EXPECT_EQ(2, answerOf(first));
  letGo();
  EXPECT_EQ(6, answerOf(second));
}

TEST_F(AnswersTogetherTest, NoneWaitsForAComponentBehindItThatIsMade) {
  m_seen.mayAnswer = false;
  Link::Pending first(link(), 0);
  FrameHeader create;
  create.kind = FrameKind::kCreate;
  create.component = m_pair.dialed().nextIdentifier();
  ValueWriter name;
  name.writeText(L"Slow");
  say({question(1, 1, first), bytesOf(create, name)});
  EXPECT_EQ(2, answerOf(first));
}

TEST_F(AnswersTogetherTest, NoneWaitsForAComponentBehindItThatIsLetGo) {
  const auto sticky = makeComponent(m_pair.dialed(), L"Caller", L"Sticky");
  ASSERT_EQ(14, twice(sticky, 7));
  m_seen.mayAnswer = false;
  Link::Pending first(link(), 0);
  FrameHeader release;
  release.kind = FrameKind::kRelease;
  release.component = sticky->getIdentifier();
  ValueWriter reason;
  reason.writeText(L"enough");
  say({question(1, 1, first), bytesOf(release, reason)});
  EXPECT_EQ(2, answerOf(first));
}

TEST_F(AnswersTogetherTest, NoneWaitsForABridgeBehindItThatHasNoRoom) {
  const auto bridge = m_pair.dialed().getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true);
  const CS_RCPtr<CS_Component> made = bridge->newInstance(0);
  const auto onBridge = makeComponent(*made, L"Caller", L"Server");
  ASSERT_EQ(14, twice(onBridge, 7));
  m_seen.mayAnswer = false;
  CS_OutRequest(onBridge, 6).execute();  // the bridge's thread is in it from now on
  m_seen.waitFor([this] { return m_seen.asked == 1; });
  FrameHeader frame;
  frame.number = 2;
  frame.bridge = made->getIdentifier();
  frame.component = onBridge->getIdentifier();
  const std::vector<unsigned char> data(60000);
  ValueWriter block, few;
  block.writeBytes(data.data(), static_cast<int>(data.size()));
  few.writeBytes(data.data(), 1);
  for (std::size_t held = 0; held < kMaxInboxBytes; held += data.size()) {
    say({bytesOf(frame, block)});
    ASSERT_EQ(14, twice(m_component, 7)) << "the reader waits already";
  }
  Link::Pending first(link(), 0);
  say({question(1, 1, first), bytesOf(frame, few)});
  EXPECT_EQ(2, answerOf(first));
}

TEST_F(AnswersTogetherTest, OneInFrontOfWhatIsNoFrameArrives) {
  Link::Pending first(link(), 0);
  std::vector<unsigned char> noFrame(kFrameHeaderSize);
  noFrame[4] = 99;
  say({question(1, 1, first), noFrame});
  EXPECT_EQ(2, answerOf(first));
  EXPECT_EQ(L"frame kind 99 does not exist", m_pair.join());
}

}  // namespace
