#include "corvane/base/limits.h"
#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_writer.h"
#include "tests/support/joined_thread.h"
#include "tests/support/own_listener.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

using namespace corvane;

std::pair<int, std::wstring> acceptFailure(Socket socket) {
  try {
    CS_Connection::accept(std::move(socket));
  } catch (const CS_Exception& exception) {
    return {exception.number(), exception.detail()};
  }
  return {0, L"nothing was thrown"};
}

// What the serving side says when a peer begins with these bytes and closes.
std::pair<int, std::wstring> answerTo(std::span<const unsigned char> bytes) {
  CS_ComponentServer::initialize(0, 0);
  OwnListener listener;
  std::pair<int, std::wstring> failure;
  Socket peer = listener.dial();
  JoinedThread acceptor([&] { failure = acceptFailure(listener.accept()); });
  {
    const Socket::Piece pieces[] = {bytes};
    peer.send(pieces);
    peer.shutdown();
  }
  acceptor.join();
  return failure;
}

std::vector<unsigned char> helloFrame(FrameHeader header, const ValueWriter& values) {
  header.length = static_cast<std::uint32_t>(values.size());
  const EncodedHeader encoded = encodeHeader(header);
  std::vector<unsigned char> bytes(encoded.begin(), encoded.end());
  values.forEachPiece([&](ValueWriter::Piece piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

TEST(Handshake, RefusesAPeerThatSpeaksSomethingElse) {
  const char request[] = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";
  EXPECT_EQ(kProtocolViolation, answerTo({reinterpret_cast<const unsigned char*>(request), sizeof request - 1}).first);
}

TEST(Handshake, RefusesAFrameThatIsTooLarge) {
  unsigned char bytes[kFrameHeaderSize] = {0xFF, 0xFF, 0xFF, 0x7F, 1};
  EXPECT_EQ(std::make_pair(kLimitExceeded, std::wstring(L"a frame of 2147483647 bytes, the limit is 65536")),
            answerTo(bytes));
}

TEST(Handshake, RefusesAConnectionThatDoesNotBeginWithAHello) {
  FrameHeader header;
  header.kind = FrameKind::kRequest;
  EXPECT_EQ(std::make_pair(kProtocolViolation, std::wstring(L"the connection does not begin with a greeting")),
            answerTo(helloFrame(header, ValueWriter())));
}

TEST(Handshake, RefusesAHelloForAnotherProtocol) {
  FrameHeader header;
  header.kind = FrameKind::kHello;
  header.number = kProtocolVersion;
  ValueWriter values;
  values.writeText(L"something");
  EXPECT_EQ(std::make_pair(kProtocolViolation, std::wstring(L"the greeting is for another protocol")),
            answerTo(helloFrame(header, values)));
}

TEST(Handshake, RefusesAnotherVersionWithBothNumbers) {
  FrameHeader header;
  header.kind = FrameKind::kHello;
  header.number = 9;
  ValueWriter values;
  values.writeText(L"corvane");
  values.writeInt(0);
  EXPECT_EQ(std::make_pair(kConnectFailed,
                           std::wstring(L"this side speaks version 1 of the protocol, the other one version 9")),
            answerTo(helloFrame(header, values)));
}

TEST(Handshake, RefusesAHelloWithTooManyValues) {
  FrameHeader header;
  header.kind = FrameKind::kHello;
  header.number = kProtocolVersion;
  ValueWriter values;
  values.writeText(L"corvane");
  values.writeInt(1000);
  EXPECT_EQ(std::make_pair(kLimitExceeded, std::wstring(L"a greeting with 1000 values")),
            answerTo(helloFrame(header, values)));
}

TEST(Handshake, TakesAsManyValuesAsThereMayBe) {
  CS_ComponentServer::initialize(0, 0);
  OwnListener listener;
  HelloValues values;
  for (std::size_t i = 0; i < kMaxHelloValues; ++i)
    values.emplace(L"name " + std::to_wstring(i), L"v");
  Link link(listener.dial());
  JoinedThread dialer([&] { link.sayHello(values, after(20000)); });
  const auto connection = CS_Connection::accept(listener.accept());
  dialer.join();
  EXPECT_EQ(values, connection->peerValues());
}

TEST(Handshake, KeepsOfEachValueNoMoreThanItsBeginning) {
  CS_ComponentServer::initialize(0, 0);
  OwnListener listener;
  const std::wstring longest(kMaxHelloCharacters, L'v');
  const std::wstring tooLong(15000, L'w');
  Link link(listener.dial());
  JoinedThread dialer([&] {
    link.sayHello({{L"process", longest}, {L"reason", tooLong}, {tooLong, L"5"}}, after(20000));
  });
  const auto connection = CS_Connection::accept(listener.accept());
  dialer.join();
  const HelloValues kept{{L"process", longest},
                         {L"reason", tooLong.substr(0, kMaxHelloCharacters)},
                         {tooLong.substr(0, kMaxHelloCharacters), L"5"}};
  EXPECT_EQ(kept, connection->peerValues());
}

TEST(Handshake, NoticesAPeerThatGoesAwayDuringIt) {
  EXPECT_EQ(std::make_pair(kConnectFailed, std::wstring(L"the other side closed the connection during the handshake")),
            answerTo({}));
}

TEST(Connection, SaysWhatIsWrongWhenNobodyListens) {
  CS_ComponentServer::initialize(0, 0);
  try {
    // A port that is given out to nobody who does not ask for it by its number.
    CS_Connection::create()->connect(L"localhost", 1, CS_Connection::kDirect, false);
    FAIL() << "nobody listens there";
  } catch (const CS_Exception& exception) {
    EXPECT_EQ(kConnectFailed, exception.number());
    EXPECT_EQ(0u, std::wstring(exception.detail()).find(L"nobody answers on localhost port 1: "));
  }
}

TEST(Connection, RefusesAPortThatIsNone) {
  const auto numberOf = [](const wchar_t* host, int port) {
    try {
      CS_Connection::create()->connect(host, port, CS_Connection::kDirect, false);
    } catch (const CS_Exception& exception) {
      return exception.number();
    }
    return 0;
  };
  CS_ComponentServer::initialize(0, 0);
  for (const int port : {-1, 0, 65536})
    EXPECT_EQ(kBadArgument, numberOf(L"localhost", port)) << port;
  EXPECT_EQ(kBadArgument, numberOf(nullptr, 1));
}

TEST(Connection, TakesNoServerOfAnotherVersion) {
  CS_ComponentServer::initialize(0, 0);
  OwnListener listener;
  std::jthread server([&] {
    Socket socket = listener.accept();
    FrameHeader header;
    header.kind = FrameKind::kWelcome;
    header.number = 2;
    ValueWriter values;
    values.writeText(L"corvane");
    values.writeInt(0);
    const auto bytes = helloFrame(header, values);
    const Socket::Piece pieces[] = {bytes};
    socket.send(pieces);
    std::vector<unsigned char> rest(1000);
    while (socket.receive(rest, after(20000)).value_or(0) > 0) {
    }
  });
  try {
    CS_Connection::create()->connect(OwnListener::wideHost().c_str(), listener.port(), CS_Connection::kDirect, false);
    FAIL() << "it speaks something else";
  } catch (const CS_Exception& exception) {
    EXPECT_STREQ(L"the other side speaks version 2 of the protocol, this one version 1", exception.detail());
  }
}

TEST(Listener, SaysWhatIsWrongWithAnAddress) {
  CS_ComponentServer::initialize(0, 0);
  for (const char* address : {"", "127.0.0.1", ":80", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:70000", "127.0.0.1:-1"}) {
    EXPECT_THROW(Listener{address}, CS_Exception) << address;
  }
}

TEST(Listener, SaysThatAPortIsTaken) {
  CS_ComponentServer::initialize(0, 0);
  Listener first("127.0.0.1:0");
  try {
    Listener second(first.address());
    FAIL() << "the port is taken";
  } catch (const CS_Exception& exception) {
    EXPECT_EQ(0u, std::wstring(exception.detail()).find(L"cannot listen on 127.0.0.1:"));
  }
}

TEST(Listener, AfterItsStopNobodyIsTakenAnyMore) {
  OwnListener listener;
  const Socket before = listener.dial();
  listener.stop();
  EXPECT_THROW(listener.dial(), CS_Exception);
}

TEST(Listener, StopEndsAnAcceptThatIsWaiting) {
  CS_ComponentServer::initialize(0, 0);
  Listener listener("127.0.0.1:0");
  JoinedThread acceptor([&] { EXPECT_FALSE(listener.accept()); });
  listener.stop();
  acceptor.join();
}

}  // namespace
