#include "corvane/components/serving.h"

#include "corvane/base/text.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"
#include "tests/support/corvane/echo_fixture.h"

#include <atomic>

// What a serving side makes of frames that no caller of this system sends, and of components that do not do their part.
namespace {

using namespace echo;

std::atomic<int> careless{0};

// 1 is not answered, 2 is answered three times, 3 and everything else is not read and counted.
class Careless : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    ++careless;
    if (request.number() == 2) {
      request.reply().writeInt(2);
      request.sendReply();
      request.sendReply();
      request.sendFailure(L"after all");
    }
    return true;
  }
};

class Unwilling : public CS_Component {
 public:
  bool initialize() override { return false; }
};

// A peer that speaks frames and writes down what comes.
class ServingTest : public EchoTest, private FrameHandler {
 protected:
  ServingTest() {
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(L"Careless", new ComponentClass<Careless>(CS_Version()));
    server->registerClass(L"Unwilling", new ComponentClass<Unwilling>(CS_Version()));
    server->offerClass(L"Careless");
    server->offerClass(L"Unwilling");
    careless = 0;
    OwnListener listener;
    m_peer = std::make_unique<Link>(listener.dial());
    JoinedThread hello([&] { m_peer->sayHello({}, after(20000)); });
    m_served = CS_Connection::accept(listener.accept());
    hello.join();
    m_peer->setHandler(this);
    m_server =
        JoinedThread([this] { m_reason = m_served->serve(); }, [this] { CS_Connection::destroy(m_served, true); });
  }
  ~ServingTest() override {
    m_peer->end(L"the test is over");
    if (m_server.joinable()) m_server.join();
    EXPECT_TRUE(CS_Bridge::waitForThreads(20000));
  }

  static void append(std::vector<unsigned char>& frames, const FrameHeader& header, std::size_t bytes) {
    FrameHeader whole = header;
    whole.length = static_cast<std::uint32_t>(bytes);
    const EncodedHeader encoded = encodeHeader(whole);
    frames.insert(frames.end(), encoded.begin(), encoded.end());
    frames.resize(frames.size() + bytes);
  }
  static FrameHeader request(std::uint32_t bridge, std::uint32_t component, std::uint16_t number,
                             std::uint32_t correlation, std::uint8_t flags) {
    FrameHeader header;
    header.number = number;
    header.bridge = bridge;
    header.component = component;
    header.correlation = correlation;
    header.flags = flags;
    return header;
  }
  void send(const FrameHeader& header, std::size_t bytes = 0) {
    std::vector<unsigned char> frames;
    append(frames, header, bytes);
    m_peer->sendFrames(frames);
  }
  void create(std::uint32_t bridge, std::uint32_t component, const wchar_t* name) {
    FrameHeader header;
    header.kind = FrameKind::kCreate;
    header.bridge = bridge;
    header.component = component;
    m_peer->sendText(header, name);
  }
  void release(std::uint32_t component) {
    FrameHeader header;
    header.kind = FrameKind::kRelease;
    header.component = component;
    m_peer->sendText(header, L"not needed");
  }

  // Everything that the serving side says until the request with the last correlation is answered, as lines.
  std::vector<std::string> answersUntil(std::uint32_t correlation) {
    m_last = correlation;
    m_peer->serve();
    return m_lines;
  }
  std::vector<std::string> linesUntilARelease() {
    m_untilRelease = true;
    m_peer->serve();
    return m_lines;
  }
  // What it says until it ends the connection, and why it does.
  std::wstring reason() {
    m_peer->serve();
    m_server.join();
    return m_reason;
  }

  CS_RCPtr<CS_Connection> m_served;
  std::vector<std::string> m_lines;

 private:
  void onFrame(Frame& frame) override {
    const std::string who = std::to_string(frame.header.bridge) + "/" + std::to_string(frame.header.component) + " ";
    switch (frame.header.kind) {
      case FrameKind::kReply:
        m_lines.push_back(who + "reply " + std::to_string(frame.header.correlation));
        break;
      case FrameKind::kFailure:
        m_lines.push_back(who + "failure " + std::to_string(frame.header.correlation) + " " +
                          toUtf8(readReason(frame.payload())));
        break;
      case FrameKind::kRelease:
        m_lines.push_back(who + "release " + toUtf8(readReason(frame.payload())));
        break;
      default:
        m_lines.push_back(who + "something else");
    }
    const bool isLast = m_untilRelease ? frame.header.kind == FrameKind::kRelease : frame.header.correlation == m_last;
    if (isLast) m_peer->end(L"seen");
  }
  void onBatchEnd() override {}
  void onBatchAbandoned() noexcept override {}
  void onLinkEnd(const std::wstring&) override {}

  std::unique_ptr<Link> m_peer;
  JoinedThread m_server;
  std::wstring m_reason;
  std::uint32_t m_last = 0xFFFFFFFF;
  bool m_untilRelease = false;
};

using Lines = std::vector<std::string>;

TEST_F(ServingTest, ARequestThatItsComponentDoesNotAnswerIsAnsweredAsFailed) {
  create(0, 1, L"Careless");
  send(request(0, 1, 1, 11, kFlagWantsReply));
  send(request(0, 1, 2, 12, kFlagWantsReply));
  EXPECT_EQ((Lines{"0/1 failure 11 the request was not answered", "0/1 reply 12"}), answersUntil(12));
}

TEST_F(ServingTest, ARequestIsAnsweredOnceAndOneThatWantsNoReplyNever) {
  create(0, 1, L"Careless");
  send(request(0, 1, 2, 11, kFlagWantsReply));
  send(request(0, 1, 2, 12, 0));
  send(request(0, 1, 1, 13, 0));
  send(request(0, 2, 1, 14, 0));
  send(request(0, 1, 2, 15, kFlagWantsReply));
  EXPECT_EQ((Lines{"0/1 reply 11", "0/1 reply 15"}), answersUntil(15));
}

TEST_F(ServingTest, WhatAComponentDoesNotReadIsNoRequestOfItsOwn) {
  create(0, 1, CS_Bridge::m_className);
  create(1, 3, L"Careless");
  for (int frame = 0; frame < 5; ++frame)
    send(request(1, 3, 3, 11, frame < 4 ? kFlagMore : 0), 100);
  send(request(1, 3, 2, 12, kFlagWantsReply));
  EXPECT_EQ((Lines{"1/3 reply 12"}), answersUntil(12));
  EXPECT_EQ(2, careless);
}

TEST_F(ServingTest, FramesOfTwoRequestsThatAreMixedEndTheConnection) {
  create(0, 1, L"Careless");
  send(request(0, 1, 3, 11, kFlagMore), 10);
  send(request(0, 1, 3, 12, 0), 10);
  EXPECT_EQ(L"frames of two requests are mixed", reason());
  EXPECT_EQ(0, careless);
}

TEST_F(ServingTest, FramesOfTwoRequestsThatAreMixedOnABridgeEndTheBridge) {
  create(0, 1, CS_Bridge::m_className);
  create(1, 3, L"Careless");
  send(request(1, 3, 3, 11, kFlagMore), 10);
  send(request(1, 3, 3, 12, 0), 10);
  EXPECT_EQ((Lines{"0/1 release frames of two requests are mixed"}), linesUntilARelease());
}

TEST_F(ServingTest, ASecondHelloEndsTheConnection) {
  FrameHeader header;
  header.kind = FrameKind::kHello;
  header.number = kProtocolVersion;
  send(header);
  EXPECT_EQ(L"a second greeting", reason());
}

TEST_F(ServingTest, ARequestToABridgeThatIsNotThereIsAnswered) {
  send(request(7, 3, 1, 11, kFlagWantsReply | kFlagMore), 10);
  send(request(7, 3, 1, 11, kFlagWantsReply), 10);
  create(0, 1, L"Careless");
  send(request(0, 1, 2, 12, kFlagWantsReply));
  EXPECT_EQ((Lines{"7/3 failure 11 the bridge does not exist any more", "0/1 reply 12"}), answersUntil(12));
}

TEST_F(ServingTest, AComponentThatDoesNotStartOrIsReleasedIsNotKept) {
  create(0, 1, L"Unwilling");
  create(0, 3, L"Careless");
  release(3);
  send(request(0, 1, 1, 11, kFlagWantsReply));
  send(request(0, 3, 1, 12, kFlagWantsReply));
  EXPECT_EQ((Lines{"0/1 failure 11 a component of the class Unwilling could not be started",
                   "0/3 failure 12 the component does not exist any more"}),
            answersUntil(12));
  EXPECT_EQ(0u, m_served->childCount());
}

}  // namespace
