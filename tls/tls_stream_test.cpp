#include "tls/tls_stream.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/tls/tls_stream_fixture.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <new>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <string>
#include <utility>

namespace {

// Passes on what comes until one of the two ends, as something between two machines does.
void passOn(corvane::Socket& from, corvane::Socket& to, const std::function<void(std::span<unsigned char>)>& look) {
  std::vector<unsigned char> buffer(4096);
  try {
    for (;;) {
      const auto count = from.receive(buffer, corvane::after(20000));
      if (!count || *count == 0) break;
      look(std::span(buffer).first(*count));
      const corvane::Stream::Piece piece = std::span(buffer).first(*count);
      to.send(std::span(&piece, 1));
    }
  } catch (const CS_Exception&) {
    // It was ended on this side.
  }
}

bool contains(const std::vector<unsigned char>& bytes, std::string_view text) {
  return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

TEST_F(TlsStreamTest, TheListeningSideKnowsWhoHasProvenItselfAndTheOtherOneProvesNothing) {
  connectEnds();
  ASSERT_TRUE(m_listening->provenPeer());
  EXPECT_EQ(L"session-5", m_listening->provenPeer()->identity);
  EXPECT_EQ(keyOf('5').mark(), m_listening->provenPeer()->keyMark);
  EXPECT_FALSE(m_dialing->provenPeer());
}

TEST_F(TlsStreamTest, PiecesOfEverySizeArriveInTheirOrder) {
  connectEnds();
  const auto bytes = unlikeBytes(1500000);
  const std::size_t sizes[] = {0, 1, 20, 16363, 16384, 1, 16385, 0, 65536, 7, 300000, 16383, 16384, 32768, 5};
  std::vector<corvane::Stream::Piece> pieces;
  std::size_t at = 0;
  for (const std::size_t size : sizes) {
    pieces.push_back(std::span(bytes).subspan(at, size));
    at += size;
  }
  pieces.push_back(std::span(bytes).subspan(at));
  JoinedThread sender([&] { m_dialing->send(pieces); });
  EXPECT_TRUE(bytes == receiveBytes(*m_listening, bytes.size(), bytes.size()));
}

TEST_F(TlsStreamTest, BothSidesSendAtOnceAndEachGetsWhatTheOtherOneSent) {
  connectEnds();
  const auto forth = unlikeBytes(900000);
  auto back = forth;
  std::reverse(back.begin(), back.end());
  const auto sendAll = [](TlsStream& stream, std::span<const unsigned char> bytes) {
    for (std::size_t at = 0; at < bytes.size(); at += 10000) {
      const corvane::Stream::Piece piece = bytes.subspan(at, std::min<std::size_t>(10000, bytes.size() - at));
      stream.send(std::span(&piece, 1));
    }
  };
  JoinedThread one([&] { sendAll(*m_dialing, forth); });
  JoinedThread other([&] { sendAll(*m_listening, back); });
  std::vector<unsigned char> cameBack;
  JoinedThread reader([&] { cameBack = receiveBytes(*m_dialing, back.size(), 4096); });
  EXPECT_TRUE(forth == receiveBytes(*m_listening, forth.size(), 70000));
  reader.join();
  EXPECT_TRUE(back == cameBack);
}

TEST_F(TlsStreamTest, NothingThatIsSentCanBeReadOnTheWay) {
  NarrowPair toServer(64 * 1024);
  m_dialing.emplace(std::move(m_sockets.dialed), "session-5", keyOf('5'));
  m_listening.emplace(std::move(toServer.accepted), &known);
  std::vector<unsigned char> seen;
  JoinedThread forth(
      [&] {
        passOn(m_sockets.accepted, toServer.dialed,
               [&](std::span<unsigned char> bytes) { seen.insert(seen.end(), bytes.begin(), bytes.end()); });
      },
      [&] { m_sockets.accepted.shutdown(); });
  JoinedThread back([&] { passOn(toServer.dialed, m_sockets.accepted, [](std::span<unsigned char>) {}); },
                    [&] { toServer.dialed.shutdown(); });
  const auto [dialing, listening] = openBoth();
  ASSERT_EQ(Failure(), dialing);
  ASSERT_EQ(Failure(), listening);
  const std::string secret = "the salaries of everybody, first quarter";
  const corvane::Stream::Piece piece(reinterpret_cast<const unsigned char*>(secret.data()), secret.size());
  m_dialing->send(std::span(&piece, 1));
  const auto came = receiveBytes(*m_listening, secret.size(), secret.size());
  EXPECT_EQ(secret, std::string(came.begin(), came.end()));
  m_sockets.accepted.shutdown();
  toServer.dialed.shutdown();
  forth.join();
  back.join();
  EXPECT_TRUE(contains(seen, "session-5")) << "the identity is no secret; without it nothing was recorded";
  EXPECT_FALSE(contains(seen, "salaries"));
  EXPECT_FALSE(contains(seen, std::string(8, '5')));
}

TEST_F(TlsStreamTest, AnotherKeyIsRefusedByBothSidesWithTheNameOfWhoClaimedIt) {
  makeEnds("session-5", '6');
  const auto [dialing, listening] = openBoth();
  EXPECT_EQ(
      Failure(corvane::kNotProven, L"The peer says that it is \"session-5\": it has another key than the one here"),
      listening);
  EXPECT_EQ(corvane::kNotProven, dialing.first);
  EXPECT_TRUE(dialing.second.starts_with(
      L"the server does not take the key of \"session-5\": it has another one or none, or what answers there is no "
      L"application server ("))
      << corvane::toUtf8(dialing.second);
  EXPECT_FALSE(m_listening->provenPeer());
}

TEST_F(TlsStreamTest, AnIdentityWithoutAKeyCannotBeToldFromOneWithAnotherKey) {
  makeEnds("session-5", '6');
  const Failure another = openBoth().first;
  m_sockets = NarrowPair(64 * 1024);
  makeEnds("session-7", '6');
  const auto [dialing, listening] = openBoth();
  EXPECT_EQ(Failure(corvane::kNotProven, L"The peer says that it is \"session-7\": there is no such key here"),
            listening);
  std::wstring withOtherName = another.second;
  withOtherName.replace(withOtherName.find(L"session-5"), 9, L"session-7");
  EXPECT_EQ(Failure(another.first, withOtherName), dialing);
}

TEST_F(TlsStreamTest, AKeyThatCannotBeUsedIsSaidOnlyWhereItLies) {
  makeEnds("session-6", '6');
  const auto [dialing, listening] = openBoth();
  EXPECT_EQ(Failure(corvane::kNotProven, L"The peer says that it is \"session-6\": the file of it is broken"),
            listening);
  EXPECT_EQ(std::wstring::npos, dialing.second.find(L"broken"));
}

TEST_F(TlsStreamTest, ALongIdentityIsCutInTheWordsForTheLogAndHasNoKey) {
  makeEnds("session-5" + std::string(100, 'x'), '5');
  EXPECT_EQ(Failure(corvane::kNotProven,
                    L"The peer says that it is \"session-5xxxxxxxxxxxxxxx...\": there is no such key here"),
            openBoth().second);
}

TEST_F(TlsStreamTest, AnIdentityOf24CharactersIsSaidAsItIsAndOneOf64MayHaveAKey) {
  makeEnds("session-5xxxxxxxxxxxxxxx", '5');
  EXPECT_EQ(
      Failure(corvane::kNotProven, L"The peer says that it is \"session-5xxxxxxxxxxxxxxx\": there is no such key here"),
      openBoth().second);
  m_sockets = NarrowPair(64 * 1024);
  makeEnds(std::string(64, 'n'), '5');
  EXPECT_EQ(Failure(), openBoth().second);
  m_sockets = NarrowPair(64 * 1024);
  makeEnds(std::string(65, 'n'), '5');
  EXPECT_EQ(Failure(corvane::kNotProven,
                    L"The peer says that it is \"nnnnnnnnnnnnnnnnnnnnnnnn...\": there is no such key here"),
            openBoth().second);
}

TEST_F(TlsStreamTest, WithoutMemoryForItThereIsNoConnectionAndNothingOfItStays) {
  ASSERT_TRUE(kCounts);
  connectEnds();  // makes what is made once
  bool isComplete = false;
  for (int nth = 1; !isComplete; ++nth) {
    m_sockets = NarrowPair(64 * 1024);
    ::ERR_clear_error();
    const long before = OpenSslMemory::held();
    OpenSslMemory::failAt(nth);
    try {
      const TlsStream stream(std::move(m_sockets.dialed), "session-5", keyOf('5'));
      isComplete = OpenSslMemory::stop();
    } catch (const std::bad_alloc&) {
      EXPECT_FALSE(OpenSslMemory::stop());
    }
    ::ERR_clear_error();
    EXPECT_EQ(before, OpenSslMemory::held()) << nth;
    ASSERT_LT(nth, 1000);
  }
}

#ifdef __GLIBC__
TEST_F(TlsStreamTest, OfWhatWasSentNothingIsKept) {
  connectEnds();
  const auto bytes = unlikeBytes(1500000);
  const corvane::Stream::Piece pieces[] = {std::span(bytes).first(700000), std::span(bytes).subspan(700000)};
  const auto held = [] {
    const struct mallinfo2 now = ::mallinfo2();
    return static_cast<long>(now.uordblks + now.hblkhd);
  };
  const long before = held();
  JoinedThread receiver([&] { EXPECT_TRUE(bytes == receiveBytes(*m_listening, bytes.size(), bytes.size())); });
  m_dialing->send(pieces);
  receiver.join();
  EXPECT_LT(held() - before, 150000);
}
#endif

TEST_F(TlsStreamTest, APeerThatSpeaksSomethingElseIsToldFromOneWithoutAKey) {
  m_listening.emplace(std::move(m_sockets.accepted), &known);
  const std::string_view plain = "GET / HTTP/1.1\r\nHost: print\r\n\r\n";
  const corvane::Stream::Piece piece(reinterpret_cast<const unsigned char*>(plain.data()), plain.size());
  m_sockets.dialed.send(std::span(&piece, 1));
  const Failure failure = failureOf([&] { m_listening->open(corvane::after(20000)); });
  EXPECT_EQ(Failure(corvane::kProtocolViolation, L"the other side does not speak TLS 1.3: http request"), failure);
}

TEST_F(TlsStreamTest, AServerThatSpeaksSomethingElseGetsNoByteOfTheConversation) {
  m_dialing.emplace(std::move(m_sockets.dialed), "session-5", keyOf('5'));
  const std::vector<unsigned char> plain(64, 'a');
  const corvane::Stream::Piece piece(plain);
  m_sockets.accepted.send(std::span(&piece, 1));
  EXPECT_EQ(Failure(corvane::kProtocolViolation, L"the other side does not speak TLS 1.3: wrong version number"),
            failureOf([&] { m_dialing->open(corvane::after(20000)); }));
}

TEST_F(TlsStreamTest, ASilentPeerAndOneThatClosesAreToldApart) {
  m_dialing.emplace(std::move(m_sockets.dialed), "session-5", keyOf('5'));
  EXPECT_EQ(Failure(corvane::kConnectFailed, L"the other side did not finish the TLS handshake in time"),
            failureOf([&] { m_dialing->open(corvane::after(0)); }));
  m_sockets.accepted.shutdown();
  EXPECT_EQ(Failure(corvane::kConnectFailed, L"the other side closed the connection during the TLS handshake"),
            failureOf([&] { m_dialing->open(corvane::after(20000)); }));
}

TEST_F(TlsStreamTest, NothingUntilTheDeadlineIsNoEndAndTheEndOfTheSocketIsOne) {
  connectEnds();
  unsigned char byte = 0;
  EXPECT_EQ(std::nullopt, m_listening->receive(std::span(&byte, 1), corvane::after(0)));
  const corvane::Stream::Piece piece(&byte, 1);
  m_dialing->send(std::span(&piece, 1));
  EXPECT_EQ(1u, m_listening->receive(std::span(&byte, 1), corvane::after(20000)));
  m_dialing->shutdown();
  EXPECT_EQ(0u, m_listening->receive(std::span(&byte, 1), corvane::after(20000)));
}

#ifndef _WIN32
TEST_F(TlsStreamTest, HasAHandleToWaitForWhereNothingThatCameIsLeft) {
  connectEnds();
  ASSERT_TRUE(m_listening->returnWhenIdle(std::chrono::milliseconds(10)));
  unsigned char byte = 0;
  EXPECT_EQ(std::nullopt, m_listening->receive(std::span(&byte, 1), std::nullopt));
  EXPECT_TRUE(m_listening->idleHandle().has_value());
  const std::array<unsigned char, 2> two{};
  const corvane::Stream::Piece pieces(two);
  m_dialing->send(std::span(&pieces, 1));
  EXPECT_EQ(1u, m_listening->receive(std::span(&byte, 1), corvane::after(20000)));
  EXPECT_EQ(std::nullopt, m_listening->idleHandle()) << "OpenSSL has the other byte";
  EXPECT_EQ(1u, m_listening->receive(std::span(&byte, 1), corvane::after(20000)));
  EXPECT_TRUE(m_listening->idleHandle().has_value());
  m_dialing->send(std::span(&pieces, 1));
  m_dialing->send(std::span(&pieces, 1));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // so that both come at once
  EXPECT_EQ(1u, m_listening->receive(std::span(&byte, 1), corvane::after(20000)));
  EXPECT_EQ(1u, m_listening->receive(std::span(&byte, 1), corvane::after(20000)));
  EXPECT_EQ(std::nullopt, m_listening->idleHandle()) << "a record was received that OpenSSL has not taken";
}
#endif

TEST_F(TlsStreamTest, AChangedByteOnTheWayEndsTheConnection) {
  NarrowPair toServer(64 * 1024);
  m_dialing.emplace(std::move(m_sockets.dialed), "session-5", keyOf('5'));
  m_listening.emplace(std::move(toServer.accepted), &known);
  std::atomic<bool> change{false};
  JoinedThread forth(
      [&] {
        passOn(m_sockets.accepted, toServer.dialed, [&](std::span<unsigned char> bytes) {
          if (change) bytes.back() ^= 1;
        });
      },
      [&] { m_sockets.accepted.shutdown(); });
  JoinedThread back([&] { passOn(toServer.dialed, m_sockets.accepted, [](std::span<unsigned char>) {}); },
                    [&] { toServer.dialed.shutdown(); });
  const auto [dialing, listening] = openBoth();
  ASSERT_EQ(Failure(), dialing);
  ASSERT_EQ(Failure(), listening);
  change = true;
  const unsigned char byte = 'x';
  const corvane::Stream::Piece piece(&byte, 1);
  m_dialing->send(std::span(&piece, 1));
  unsigned char came = 0;
  EXPECT_EQ(Failure(corvane::kConnectionLost,
                    L"what came is not what the other side has encrypted: decryption failed or bad record mac"),
            failureOf([&] { m_listening->receive(std::span(&came, 1), corvane::after(20000)); }));
  m_sockets.accepted.shutdown();
  toServer.dialed.shutdown();
}

}  // namespace
