// What a TLS stream makes of peers that speak TLS in other ways than it does itself.

#include "corvane/base/text.h"
#include "tests/support/tls/tls_stream_fixture.h"

#include <openssl/ssl.h>

namespace {

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

class ForeignPeerTest : public TlsStreamTest {
 protected:
  // Why the listening side lets the peer not in.
  Failure refusalOf(ForeignPeer& peer) {
    m_listening.emplace(std::move(m_sockets.accepted), &known);
    Failure failure;
    JoinedThread listening([&] {
      failure = failureOf([&] { m_listening->open(corvane::after(20000)); });
      m_listening->shutdown();
    });
    EXPECT_FALSE(peer.handshake());
    listening.join();
    return failure;
  }
};

// The same, with leave to send data with the first flight.
int keyOfFivesWithEarlyData(SSL* ssl, const EVP_MD* digest, const unsigned char** identity, size_t* length,
                            SSL_SESSION** session) {
  keyOfFives(ssl, digest, identity, length, session);
  return ::SSL_SESSION_set_max_early_data(*session, 16384);
}

TEST_F(ForeignPeerTest, APeerThatSendsDataInTheFirstFlightIsRefusedAndNothingOfThemIsTaken) {
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

TEST_F(ForeignPeerTest, AFirstFlightThatIsCutAnywhereOrReplayedOpensNothingAndLeavesNothing) {
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

TEST_F(ForeignPeerTest, AnOlderVersionOfTlsIsRefused) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  ::SSL_set_max_proto_version(peer.ssl(), TLS1_2_VERSION);
  const Failure failure = refusalOf(peer);
  EXPECT_EQ(Failure(corvane::kProtocolViolation, L"the other side does not speak TLS 1.3: unsupported protocol"),
            failure);
}

TEST_F(ForeignPeerTest, APeerThatOffersAnotherGroupIsRefused) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  ::SSL_set_psk_use_session_callback(peer.ssl(), &keyOfFives);
  ASSERT_EQ(1, ::SSL_set1_groups_list(peer.ssl(), "P-384"));
  const Failure failure = refusalOf(peer);
  EXPECT_EQ(corvane::kNotProven, failure.first) << corvane::toUtf8(failure.second);
}

TEST_F(ForeignPeerTest, APeerThatOffersNoKeyIsRefused) {
  ForeignPeer peer(std::move(m_sockets.dialed), ::TLS_client_method());
  const Failure failure = refusalOf(peer);
  EXPECT_EQ(corvane::kNotProven, failure.first);
  EXPECT_TRUE(failure.second.starts_with(L"The peer offers no key: ")) << corvane::toUtf8(failure.second);
}

TEST_F(ForeignPeerTest, APeerThatChangesItsKeysWithoutEndIsGivenUpAndOneThatDoesItOnceIsNot) {
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
