#include "tls/tls_stream.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/corvane/socket_fixture.h"
#include "tests/support/joined_thread.h"

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

using corvane::Key;
using tls::TlsStream;
using Failure = std::pair<int, std::wstring>;

Key keyOf(unsigned char byte) {
  corvane::Bytes32 bytes;
  bytes.fill(byte);
  return Key(bytes);
}

Failure failureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const CS_Exception& failure) {
    return {failure.number(), failure.detail()};
  }
  return {0, L""};
}

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

// The memory of OpenSSL: how many blocks it holds, and one allocation of a thread that fails.
class OpenSslMemory {
 public:
  // Before OpenSSL has asked for any.
  static bool take() { return ::CRYPTO_set_mem_functions(&allocate, &resize, &release) == 1; }
  static long held() { return s_held; }
  static void failAt(int nth) { s_left = nth; }
  // Whether that allocation has not come; none fails any more.
  static bool stop() { return std::exchange(s_left, 0) != 0; }

 private:
  static bool failsNow() { return s_left > 0 && --s_left == 0; }
  static void* allocate(std::size_t size, const char*, int) {
    void* const block = size == 0 || failsNow() ? nullptr : std::malloc(size);
    if (block != nullptr) ++s_held;
    return block;
  }
  static void* resize(void* block, std::size_t size, const char* file, int line) {
    if (block == nullptr) return allocate(size, file, line);
    if (size != 0) return failsNow() ? nullptr : std::realloc(block, size);
    release(block, file, line);
    return nullptr;
  }
  static void release(void* block, const char*, int) {
    if (block != nullptr) --s_held;
    std::free(block);
  }

  static inline std::atomic<long> s_held{0};
  static inline thread_local int s_left = 0;
};

const bool kCounts = OpenSslMemory::take();

// Both ends of one connection in this process.
class TlsStreamTest : public testing::Test {
 protected:
  // The listening side knows session-5 by a key of fives.
  static std::optional<Key> known(const std::string& identity) {
    if (identity == "session-6") throw CS_Exception(corvane::kKeyNeeded, L"the file of it is broken");
    if (identity != "session-5" && identity != std::string(64, 'n')) return std::nullopt;
    return keyOf('5');
  }

  void makeEnds(const std::string& identity = "session-5", unsigned char key = '5') {
    m_dialing.emplace(std::move(m_sockets.dialed), identity, keyOf(key));
    m_listening.emplace(std::move(m_sockets.accepted), &known);
  }

  // What became of the handshake on the dialing and on the listening side.
  std::pair<Failure, Failure> openBoth() {
    Failure listening;
    JoinedThread other([&] {
      listening = failureOf([&] { m_listening->open(corvane::after(20000)); });
      if (listening.first != 0) m_listening->shutdown();
    });
    Failure dialing = failureOf([&] { m_dialing->open(corvane::after(20000)); });
    // Under TLS 1.3 the dialing side is done first and learns of a refusal when it reads.
    other.join();
    return {dialing, listening};
  }

  void connectEnds() {
    makeEnds();
    const auto [dialing, listening] = openBoth();
    ASSERT_EQ(Failure(), dialing);
    ASSERT_EQ(Failure(), listening);
  }

  static std::vector<unsigned char> receiveBytes(TlsStream& stream, std::size_t count, std::size_t atOnce) {
    std::vector<unsigned char> all(count);
    std::size_t came = 0;
    while (came < count) {
      const auto now =
          stream.receive(std::span(all).subspan(came, std::min(atOnce, count - came)), corvane::after(20000));
      if (!now || *now == 0) break;
      came += *now;
    }
    all.resize(came);
    return all;
  }

  NarrowPair m_sockets{64 * 1024};
  std::optional<TlsStream> m_dialing;
  std::optional<TlsStream> m_listening;
};

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

// A peer of OpenSSL's own, for what TlsStream itself never does. Its socket is moved by hand.
class ForeignPeer {
 public:
  ForeignPeer(corvane::Socket socket, const SSL_METHOD* method) : m_socket(std::move(socket)) {
    m_context = ::SSL_CTX_new(method);
    m_ssl = ::SSL_new(m_context);
    m_in = ::BIO_new(::BIO_s_mem());
    m_out = ::BIO_new(::BIO_s_mem());
    ::SSL_set_bio(m_ssl, m_in, m_out);
    ::SSL_set_connect_state(m_ssl);
  }
  ~ForeignPeer() {
    ::SSL_free(m_ssl);
    ::SSL_CTX_free(m_context);
  }
  ForeignPeer(const ForeignPeer&) = delete;
  ForeignPeer& operator=(const ForeignPeer&) = delete;

  SSL* ssl() { return m_ssl; }
  bool handshake() {
    for (;;) {
      const int result = ::SSL_do_handshake(m_ssl);
      flush();
      if (result == 1) return true;
      if (::SSL_get_error(m_ssl, result) != SSL_ERROR_WANT_READ || !feed()) return false;
    }
  }
  void flush() {
    std::vector<unsigned char> made(::BIO_ctrl_pending(m_out));
    if (made.empty()) return;
    ::BIO_read(m_out, made.data(), static_cast<int>(made.size()));
    const corvane::Stream::Piece piece(made);
    m_socket.send(std::span(&piece, 1));
  }
  bool feed() {
    std::vector<unsigned char> buffer(16384);
    const auto count = m_socket.receive(buffer, corvane::after(20000));
    if (!count || *count == 0) return false;
    ::BIO_write(m_in, buffer.data(), static_cast<int>(*count));
    return true;
  }

 private:
  corvane::Socket m_socket;
  SSL_CTX* m_context;
  SSL* m_ssl;
  BIO* m_in;
  BIO* m_out;
};

// As an honest client has it: the key of fives.
int keyOfFives(SSL* ssl, const EVP_MD*, const unsigned char** identity, size_t* length, SSL_SESSION** session) {
  static const std::string name = "session-5";
  const std::vector<unsigned char> key(32, '5');
  const unsigned char cipher[] = {0x13, 0x01};
  *session = ::SSL_SESSION_new();
  ::SSL_SESSION_set1_master_key(*session, key.data(), key.size());
  ::SSL_SESSION_set_cipher(*session, ::SSL_CIPHER_find(ssl, cipher));
  ::SSL_SESSION_set_protocol_version(*session, TLS1_3_VERSION);
  *identity = reinterpret_cast<const unsigned char*>(name.data());
  *length = name.size();
  return 1;
}

// The same, with leave to send data with the first flight.
int keyOfFivesWithEarlyData(SSL* ssl, const EVP_MD* digest, const unsigned char** identity, size_t* length,
                            SSL_SESSION** session) {
  keyOfFives(ssl, digest, identity, length, session);
  return ::SSL_SESSION_set_max_early_data(*session, 16384);
}

TEST_F(TlsStreamTest, APeerThatSendsDataInTheFirstFlightIsRefusedAndNothingOfThemIsTaken) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  ::SSL_set_psk_use_session_callback(peer.ssl(), &keyOfFivesWithEarlyData);
  m_listening.emplace(std::move(m_sockets.accepted), &known);
  Failure opened;
  std::size_t received = 0;
  JoinedThread listening([&] {
    opened = failureOf([&] {
      m_listening->open(corvane::after(20000));
      unsigned char bytes[100];
      received = m_listening->receive(bytes, corvane::after(20000)).value_or(0);
    });
    m_listening->shutdown();
  });
  std::size_t written = 0;
  ASSERT_EQ(1, ::SSL_write_early_data(peer.ssl(), "early", 5, &written));
  peer.flush();
  peer.handshake();
  EXPECT_NE(SSL_EARLY_DATA_ACCEPTED, ::SSL_get_early_data_status(peer.ssl()));
  listening.join();
  EXPECT_EQ(corvane::kNotProven, opened.first);
  EXPECT_EQ(0u, received);
}

TEST_F(TlsStreamTest, AFirstFlightThatIsCutAnywhereOrReplayedOpensNothingAndLeavesNothing) {
  std::vector<unsigned char> flight;
  {
    NarrowPair recorded;
    ForeignPeer peer(std::move(recorded.dialed), ::TLS_client_method());
    ::SSL_set_psk_use_session_callback(peer.ssl(), &keyOfFives);
    ::SSL_do_handshake(peer.ssl());
    peer.flush();
    flight.resize(4096);
    flight.resize(recorded.accepted.receive(flight, corvane::after(20000)).value_or(0));
  }
  ASSERT_GT(flight.size(), 200u);
  const auto play = [&](std::size_t bytes) {
    NarrowPair sockets;
    TlsStream listening(std::move(sockets.accepted), &known);
    const corvane::Stream::Piece piece = std::span(flight).first(bytes);
    sockets.dialed.send(std::span(&piece, 1));
    Failure failure;
    JoinedThread server([&] {
      failure = failureOf([&] { listening.open(corvane::after(20000)); });
      listening.shutdown();
    });
    if (bytes == flight.size()) {
      // The answer, to which only the key's owner could reply; the end of an earlier conversation is none.
      std::vector<unsigned char> answer(4096);
      EXPECT_GT(sockets.dialed.receive(answer, corvane::after(20000)).value_or(0), 100u);
      const unsigned char end[] = {0x17, 0x03, 0x03, 0x00, 0x35};
      std::vector<unsigned char> made(end, end + 5);
      made.resize(5 + 0x35, 'x');
      const corvane::Stream::Piece last(made);
      sockets.dialed.send(std::span(&last, 1));
    }
    sockets.dialed.shutdown();
    server.join();
    EXPECT_NE(0, failure.first) << bytes;
    EXPECT_FALSE(listening.provenPeer());
  };
  play(flight.size());
  const long before = OpenSslMemory::held();
  for (std::size_t bytes = 0; bytes <= flight.size(); ++bytes)
    play(bytes);
  EXPECT_EQ(before, OpenSslMemory::held());
}

TEST_F(TlsStreamTest, AnOlderVersionOfTlsIsRefused) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  ::SSL_set_max_proto_version(peer.ssl(), TLS1_2_VERSION);
  m_listening.emplace(std::move(m_sockets.accepted), &known);
  Failure failure;
  JoinedThread listening([&] {
    failure = failureOf([&] { m_listening->open(corvane::after(20000)); });
    m_listening->shutdown();
  });
  EXPECT_FALSE(peer.handshake());
  listening.join();
  EXPECT_EQ(Failure(corvane::kProtocolViolation, L"the other side does not speak TLS 1.3: unsupported protocol"),
            failure);
}

TEST_F(TlsStreamTest, APeerThatOffersAnotherGroupIsRefused) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  ::SSL_set_psk_use_session_callback(peer.ssl(), &keyOfFives);
  ASSERT_EQ(1, ::SSL_set1_groups_list(peer.ssl(), "P-384"));
  m_listening.emplace(std::move(m_sockets.accepted), &known);
  Failure failure;
  JoinedThread listening([&] {
    failure = failureOf([&] { m_listening->open(corvane::after(20000)); });
    m_listening->shutdown();
  });
  EXPECT_FALSE(peer.handshake());
  listening.join();
  EXPECT_EQ(corvane::kNotProven, failure.first) << corvane::toUtf8(failure.second);
}

TEST_F(TlsStreamTest, APeerThatOffersNoKeyIsRefused) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  m_listening.emplace(std::move(m_sockets.accepted), &known);
  Failure failure;
  JoinedThread listening([&] {
    failure = failureOf([&] { m_listening->open(corvane::after(20000)); });
    m_listening->shutdown();
  });
  EXPECT_FALSE(peer.handshake());
  listening.join();
  EXPECT_EQ(corvane::kNotProven, failure.first);
  EXPECT_TRUE(failure.second.starts_with(L"The peer offers no key: ")) << corvane::toUtf8(failure.second);
}

TEST_F(TlsStreamTest, APeerThatChangesItsKeysWithoutEndIsGivenUpAndOneThatDoesItOnceIsNot) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  ::SSL_set_psk_use_session_callback(peer.ssl(), &keyOfFives);
  m_listening.emplace(std::move(m_sockets.accepted), &known);
  Failure opened;
  JoinedThread listening([&] { opened = failureOf([&] { m_listening->open(corvane::after(20000)); }); });
  ASSERT_TRUE(peer.handshake());
  listening.join();
  ASSERT_EQ(Failure(), opened);
  Failure failure;
  int received = 0;
  JoinedThread reader([&] {
    failure = failureOf([&] {
      for (unsigned char byte = 0; m_listening->receive(std::span(&byte, 1), corvane::after(20000)) == 1u; ++received) {
      }
    });
    m_listening->shutdown();
    m_listening->close();  // only that makes a sender know at once everywhere
  });
  try {
    // Each change is followed by a byte of data, as too many in a row are refused by OpenSSL itself.
    for (int i = 0; i < 100000; ++i) {
      ::SSL_key_update(peer.ssl(), SSL_KEY_UPDATE_REQUESTED);
      ::SSL_write(peer.ssl(), "x", 1);
      peer.flush();
    }
  } catch (const CS_Exception&) {
    // It has given up.
  }
  reader.join();
  EXPECT_EQ(Failure(corvane::kLimitExceeded, L"the other side changes its keys without end"), failure);
  EXPECT_LT(10, received);
  EXPECT_GT(2000, received);
}

}  // namespace
