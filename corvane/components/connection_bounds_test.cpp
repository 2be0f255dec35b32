#include "corvane/components/bridge_router.h"
#include "corvane/components/bridge_worker.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"
#include "tests/support/corvane/echo_fixture.h"
#include "tests/support/heap_in_use.h"
#include "tests/support/sanitized.h"

#include <atomic>

// What a peer can make grow, and where it ends. The peer speaks frames of its own making.
namespace {

using namespace echo;

class BoundsTest : public EchoTest {
 protected:
  void send(FrameKind kind, std::uint32_t bridge, std::uint32_t component, const std::wstring& text) {
    FrameHeader header;
    header.kind = kind;
    header.bridge = bridge;
    header.component = component;
    m_pair.dialed().link()->sendText(header, text.c_str());
  }

  // Sends a request that wants no reply, in that many frames of so many bytes.
  void sendRequest(std::uint32_t bridge, std::uint32_t component, std::uint16_t number, int frames, std::size_t bytes) {
    FrameHeader header;
    header.kind = FrameKind::kRequest;
    header.number = number;
    header.bridge = bridge;
    header.component = component;
    header.correlation = m_pair.dialed().link()->nextCorrelation();
    header.length = static_cast<std::uint32_t>(bytes);
    for (int left = frames; left > 0; --left) {
      header.flags = left > 1 ? kFlagMore : 0;
      const EncodedHeader encoded = encodeHeader(header);
      std::vector<unsigned char> frame(encoded.begin(), encoded.end());
      frame.resize(frame.size() + bytes);
      m_pair.dialed().link()->sendFrames(frame);
    }
  }

  // What the request with that number to that component is answered with.
  std::wstring answer(std::uint32_t bridge, std::uint32_t component, std::uint16_t number = 1) {
    Link& link = *m_pair.dialed().link();
    Link::Pending pending(link, bridge);
    FrameHeader header;
    header.kind = FrameKind::kRequest;
    header.flags = kFlagWantsReply;
    header.number = number;
    header.bridge = bridge;
    header.component = component;
    header.correlation = pending.correlation();
    ValueWriter values;
    values.writeInt(21);
    link.send(header, values);
    try {
      ValueReader reader(pending.wait(after(20000)));
      return std::to_wstring(reader.readInt());
    } catch (const CS_Exception& exception) {
      return exception.detail();
    }
  }

  // A component on the connection answers, so everything that was sent before is done with.
  void settle() {
    if (!m_probe) m_probe = makeComponent(m_pair.dialed(), L"Caller", L"Server");
    EXPECT_EQ(2, twice(m_probe, 1));
  }

  void letAnswer() {
    const std::lock_guard guard(m_seen.lock);
    m_seen.mayAnswer = true;
    m_seen.changed.notify_all();
  }

  ConnectionPair m_pair;
  CS_RCPtr<CS_Component> m_probe;
};

TEST_F(BoundsTest, ReleasesOfBridgesThatNeverWereLeaveNothing) {
  const std::wstring reason(30000, L'r');
  settle();
  const std::size_t before = heapInUse();
  const std::uint32_t count = kSanitized ? 500 : 3000;  // there it takes half a minute
  for (std::uint32_t bridge = 1; bridge <= count; ++bridge)
    send(FrameKind::kRelease, 0, 1000 + 2 * bridge, reason);
  settle();
  EXPECT_LT(heapInUse(), before + 1000000);
}

TEST_F(BoundsTest, TheReasonOfAReleaseIsCut) {
  const auto bridge = CS_RCPtr<CS_Component>(
      m_pair.accepted()->getClassFactory(CS_Bridge::m_className, CS_Bridge::m_className, true)->newInstance(0));
  const auto component = makeComponent(*bridge, L"Caller", L"Server");
  settle();
  send(FrameKind::kRelease, 0, bridge->getIdentifier(), std::wstring(30000, L'r'));
  settle();
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(kMaxReasonCharacters, L'r') + L"..."),
            failureOf([&] { sendBlock(component, {1}); }));
}

TEST_F(BoundsTest, ARefusedComponentIsForgottenWhenThePeerLetsItGo) {
  for (std::uint32_t component = 1001; component < 1001 + 2 * 500; component += 2) {
    send(FrameKind::kCreate, 0, component, L"Nobody has it");
    send(FrameKind::kRelease, 0, component, L"never mind");
  }
  EXPECT_EQ(L"the component does not exist any more", answer(0, 1001));
  for (std::uint32_t component = 1; component <= kMaxRefusedComponents; ++component)
    send(FrameKind::kCreate, 0, 5000 + component, L"Nobody has it");
  EXPECT_EQ(L"this side offers no components of the class Nobody has it", answer(0, 5001));
  send(FrameKind::kCreate, 0, 9001, L"Nobody has it");
  EXPECT_EQ(L"more than 64 refused components", m_pair.join());
}

TEST_F(BoundsTest, OfTheNameInARefusalOnlyTheBeginningIsKept) {
  const std::wstring name(30000, L'n');
  settle();
  const std::size_t before = heapInUse();
  for (std::uint32_t component = 1; component <= 60; ++component)
    send(FrameKind::kCreate, 0, 1001 + component, name);
  EXPECT_EQ(0u, answer(0, 1002).find(L"this side offers no components of the class nnn"));
  EXPECT_LT(heapInUse(), before + 500000);
}

TEST_F(BoundsTest, AConnectionHoldsAsManyComponentsAsItMayAndOneMoreClosesIt) {
  for (std::uint32_t component = 1; component <= CS_Component::kMaxChildren; ++component)
    send(FrameKind::kCreate, 0, 2 * component + 1, L"Server");
  EXPECT_EQ(L"42", answer(0, 3));
  EXPECT_EQ(CS_Component::kMaxChildren, m_pair.accepted()->childCount());
  send(FrameKind::kCreate, 0, 9001, L"Server");
  EXPECT_EQ(L"component 9001 exists already, or there are 1024 of them", m_pair.join());
}

TEST_F(BoundsTest, ABridgeHoldsAsManyComponentsAsItMayAndOneMoreEndsTheBridgeOnly) {
  send(FrameKind::kCreate, 0, 1001, CS_Bridge::m_className);
  for (std::uint32_t component = 1; component <= kMaxComponentsOnBridge; ++component)
    send(FrameKind::kCreate, 1001, 2001 + component, L"Server");
  EXPECT_EQ(L"42", answer(1001, 2002));
  // The one who waits on the bridge is told at once why it has ended.
  Link::Pending pending(*m_pair.dialed().link(), 1001);
  send(FrameKind::kCreate, 1001, 9001, L"Server");
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"component 9001 exists already, or there are 64 of them")),
            failureOf([&] { pending.wait(after(20000)); }));
  m_seen.waitFor([&] { return m_seen.released == static_cast<int>(100 * kMaxComponentsOnBridge); });
  EXPECT_EQ(L"the bridge does not exist any more", answer(1001, 2002));
  EXPECT_EQ(0u, m_pair.accepted()->childCount());
}

TEST_F(BoundsTest, ABridgeOnABridgeIsRefused) {
  send(FrameKind::kCreate, 0, 1001, CS_Bridge::m_className);
  send(FrameKind::kCreate, 1001, 1003, CS_Bridge::m_className);
  send(FrameKind::kCreate, 1001, 1005, CS_BridgeRouter::getClassName());
  EXPECT_EQ(L"a bridge stands on a connection, not on a bridge", answer(1001, 1003));
  EXPECT_EQ(L"a bridge stands on a connection, not on a bridge", answer(1001, 1005));
}

TEST_F(BoundsTest, BridgesWhoseThreadsHaveNotEndedCountThoughThePeerHasLetThemGo) {
  m_seen.mayAnswer = false;
  for (int i = 0; i < kMaxServedBridges; ++i) {
    const auto bridge = static_cast<std::uint32_t>(1001 + 2 * i);
    send(FrameKind::kCreate, 0, bridge, CS_Bridge::m_className);
    send(FrameKind::kCreate, bridge, 1, L"Server");
    sendRequest(bridge, 1, 6, 1, 0);
    m_seen.waitFor([&] { return m_seen.asked == i + 1; });
    send(FrameKind::kRelease, 0, bridge, L"not needed");
  }
  settle();
  EXPECT_EQ(1u, m_pair.accepted()->childCount());
  send(FrameKind::kCreate, 0, 9001, CS_Bridge::m_className);
  EXPECT_EQ(L"this side has no thread for the bridge, or serves 128 of this connection already", answer(9001, 1));
  letAnswer();
  ASSERT_TRUE(CS_Bridge::waitForThreads(20000));
  send(FrameKind::kCreate, 0, 9003, CS_Bridge::m_className);
  send(FrameKind::kCreate, 9003, 1, L"Server");
  EXPECT_EQ(L"42", answer(9003, 1));
}

// Delivers one frame more on a thread of its own, which has to wait until the given action makes room for it. The pause
// lets a delivery that does not wait come back too early; one that waits passes however long it is.
template <class MakeRoom>
void expectToWaitUntil(CS_Bridge& bridge, const Frame& frame, MakeRoom makeRoom) {
  std::atomic<bool> mayReturn{false};
  bool waited = false;
  JoinedThread reader([&] {
    bridge.deliver(frame.bytes);
    waited = mayReturn;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  mayReturn = true;
  makeRoom();
  reader.join();
  EXPECT_TRUE(waited);
}

// What waits for bridges whose threads take nothing.
class InboxTest : public ::testing::Test {
 protected:
  CS_RCPtr<CS_Bridge> makeBridge() {
    CS_RCPtr<CS_Bridge> bridge(new CS_Bridge);
    bridge->prepareServing(m_load);
    return bridge;
  }

  Frame frameOf(std::size_t bytes) {
    m_bytes.assign(kFrameHeaderSize + bytes, 1);
    return {FrameHeader(), m_bytes};
  }

  std::shared_ptr<BridgeLoad> m_load = std::make_shared<BridgeLoad>();
  std::vector<unsigned char> m_bytes;
};

TEST_F(InboxTest, SoManyBytesWaitForOneBridgeAndThenTheReaderWaitsToo) {
  const auto bridge = makeBridge();
  const Frame frame = frameOf(kMaxFramePayload);
  while (m_load->bytes < kMaxInboxBytes)
    bridge->deliver(frame.bytes);
  EXPECT_LE(m_load->bytes, kMaxInboxBytes + kMaxFramePayload + 100);
  expectToWaitUntil(*bridge, frame, [&] { bridge->release(); });
  EXPECT_EQ(0u, m_load->bytes);
}

TEST_F(InboxTest, SoManyFramesWaitForOneBridgeHoweverSmallTheyAre) {
  const auto bridge = makeBridge();
  const Frame frame = frameOf(0);
  std::size_t deliveries = 0;
  for (; m_load->bytes < kMaxInboxBytes; ++deliveries)
    bridge->deliver(frame.bytes);
  EXPECT_LT(deliveries, kMaxInboxBytes / (2 * kFrameHeaderSize));  // what holding one costs counts
  expectToWaitUntil(*bridge, frame, [&] { bridge->release(); });
}

TEST_F(InboxTest, WhatWaitsIsGivenUpWithTheBridge) {
  const auto bridge = makeBridge();
  const Frame frame = frameOf(kMaxFramePayload);
  const std::size_t empty = heapInUse();
  for (std::size_t bytes = 0; bytes < kMaxInboxBytes; bytes += kMaxFramePayload)
    bridge->deliver(frame.bytes);
  const std::size_t full = heapInUse();
  bridge->release();
  EXPECT_EQ(0u, m_load->bytes);
  if (full > empty + 3 * kMaxFramePayload) {  // where that can be measured
    EXPECT_LT(heapInUse(), empty + kMaxFramePayload);
  }
}

TEST_F(InboxTest, AllBridgesOfAConnectionTogetherHoldNoMoreThanTheirShare) {
  std::vector<CS_RCPtr<CS_Bridge>> bridges;
  const Frame frame = frameOf(kMaxFramePayload);
  while (m_load->bytes < kMaxConnectionInboxBytes) {
    bridges.push_back(makeBridge());
    for (std::size_t bytes = 0; bytes < kMaxInboxBytes && m_load->bytes < kMaxConnectionInboxBytes;
         bytes += kMaxFramePayload)
      bridges.back()->deliver(frame.bytes);
  }
  EXPECT_LE(m_load->bytes, kMaxConnectionInboxBytes + kMaxFramePayload + 100);
  const auto last = makeBridge();
  expectToWaitUntil(*last, frame, [&] { bridges.front()->release(); });
  last->release();
  for (const auto& bridge : bridges)
    bridge->release();
  EXPECT_EQ(0u, m_load->bytes);
}

TEST_F(BoundsTest, BuffersToUseAgainAreFew) {
  settle();
  const std::size_t before = heapInUse();
  m_seen.mayAnswer = false;
  for (int i = 0; i < 6; ++i) {
    const auto bridge = static_cast<std::uint32_t>(1001 + 2 * i);
    send(FrameKind::kCreate, 0, bridge, CS_Bridge::m_className);
    send(FrameKind::kCreate, bridge, 1, L"Server");
    sendRequest(bridge, 1, 6, 1, 0);
    sendRequest(bridge, 1, 99, 3, kMaxFramePayload);
  }
  settle();  // all of it waits
  letAnswer();
  for (int i = 0; i < 6; ++i)
    EXPECT_EQ(L"42", answer(static_cast<std::uint32_t>(1001 + 2 * i), 1));
  EXPECT_LT(heapInUse(), before + 10 * kMaxFramePayload);
}

TEST_F(BoundsTest, AReplyPastItsBoundEndsTheConnection) {
  Link& asking = *m_pair.accepted()->link();
  FrameHeader header;
  header.kind = FrameKind::kReply;
  std::vector<unsigned char> frame(kFrameHeaderSize + kMaxFramePayload);
  const auto reply = [&](const Link::Pending& pending, std::size_t frames) {
    header.correlation = pending.correlation();
    header.length = kMaxFramePayload;
    for (std::size_t left = frames; left > 0; --left) {
      header.flags = left > 1 ? kFlagMore : 0;
      const EncodedHeader encoded = encodeHeader(header);
      std::copy(encoded.begin(), encoded.end(), frame.begin());
      m_pair.dialed().link()->sendFrames(frame);
    }
  };
  {
    Link::Pending pending(asking, 0);
    reply(pending, kMaxCollectedReply / kMaxFramePayload);
    EXPECT_EQ(kMaxCollectedReply, pending.wait(after(20000)).size());
  }
  Link::Pending pending(asking, 0);
  failureOf([&] { reply(pending, kMaxCollectedReply / kMaxFramePayload + 1); });
  EXPECT_EQ(std::make_pair(kConnectionLost, std::wstring(L"a reply of more than 4194304 bytes")),
            failureOf([&] { pending.wait(after(20000)); }));
}

TEST_F(BoundsTest, AMapOfVersionsHasSoManyClassesWithNamesOfSuchALength) {
  const auto read = [](int count, std::size_t length) {
    ValueWriter writer;
    writer.writeInt(count);
    for (int i = 0; i < std::min(count, CS_ClassVersionMap::kMaxClasses); ++i) {
      const std::wstring number = std::to_wstring(i);
      writer.writeText((number + std::wstring(length - number.size(), L'c')).c_str());
      for (const int part : {4, 3, 2, 1})
        writer.writeInt(part);
    }
    std::vector<unsigned char> bytes;
    writer.forEachPiece([&](ValueWriter::Piece piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
    ValueReader reader(std::move(bytes));
    CS_Channel channel = CS_Channel(nullptr, 0, 0).withReader(reader);
    CS_ClassVersionMap map;
    map << channel;
    return map;
  };
  CS_ClassVersionMap written;
  written.set(L"C", CS_Version(1, 2, 3, 4));
  ValueWriter sent;
  CS_Channel out = CS_Channel(nullptr, 0, 0).withWriter(sent);
  written >> out;
  std::vector<unsigned char> bytes;
  sent.forEachPiece([&](ValueWriter::Piece piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  ValueReader values(std::move(bytes));
  EXPECT_EQ(1, values.readInt());
  EXPECT_EQ(L"C", values.readText());
  for (const int part : {1, 2, 3, 4})
    EXPECT_EQ(part, values.readInt());
  const CS_ClassVersionMap largest = read(CS_ClassVersionMap::kMaxClasses, kMaxClassNameUnits);
  EXPECT_EQ(1024u, largest.entries().size());
  EXPECT_EQ(CS_Version(4, 3, 2, 1), largest.entries().begin()->second);
  EXPECT_EQ(std::make_pair(kLimitExceeded, std::wstring(L"a map of 1025 classes")), failureOf([&] { read(1025, 9); }));
  EXPECT_EQ(std::make_pair(kLimitExceeded, std::wstring(L"a map of -1 classes")), failureOf([&] { read(-1, 9); }));
  EXPECT_EQ(std::make_pair(kLimitExceeded, std::wstring(L"a class name of 257 characters")),
            failureOf([&] { read(1, kMaxClassNameUnits + 1); }));
}

}  // namespace
