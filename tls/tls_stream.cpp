#include "tls/tls_stream.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <openssl/err.h>
#include <openssl/ssl.h>

namespace tls {
namespace {

using corvane::fromUtf8;

constexpr std::size_t kMaxIdentity = 64;                   // longer ones have no key
constexpr std::size_t kRecord = SSL3_RT_MAX_PLAIN_LENGTH;  // of data in one record
constexpr std::size_t kRecordOverhead = 5 + 1 + 16;        // header, type and tag (RFC 8446, 5.2)
constexpr std::size_t kFirstReceive = 4 * 1024;            // grows when a receive fills it
constexpr std::size_t kLargestReceive = 96 * 1024;
constexpr std::size_t kSendAtOnce = 64 * 1024;  // of data that are encrypted for one send
constexpr std::size_t kKept = 16 * 1024;        // of a buffer between two sends
// What a peer may make OpenSSL want to say while nothing is sent: answers to its changes of keys, 27 bytes each.
constexpr std::size_t kMaxUnsent = 16 * 1024;

// OpenSSL keeps something for each thread that uses it. Where it is linked into a Windows program it does not see the
// thread end, and has to be told.
void releaseAtThreadEnd() {
#ifdef _WIN32
  struct ThreadEnd {
    ~ThreadEnd() { ::OPENSSL_thread_stop(); }
    bool isThere = true;
  };
  thread_local ThreadEnd end;
  end.isThere = true;  // a use, which makes it
#endif
}

struct Free {
  void operator()(SSL_CTX* context) const { ::SSL_CTX_free(context); }
  void operator()(SSL_SESSION* session) const { ::SSL_SESSION_free(session); }
};

// One for each role, for as long as the process lives: what all connections have in common.
SSL_CTX* contextOf(bool isListening) {
  const auto make = [](const SSL_METHOD* method, int verification) {
    std::unique_ptr<SSL_CTX, Free> context(::SSL_CTX_new(method));
    if (!context) throw std::bad_alloc();
    SSL_CTX* const made = context.get();
    ::SSL_CTX_set_min_proto_version(made, TLS1_3_VERSION);
    ::SSL_CTX_set_max_proto_version(made, TLS1_3_VERSION);
    ::SSL_CTX_set_ciphersuites(made, "TLS_AES_128_GCM_SHA256");
    ::SSL_CTX_set1_groups_list(made, "X25519:P-256");
    ::SSL_CTX_set_options(made, SSL_OP_NO_TICKET | SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION);
    ::SSL_CTX_set_num_tickets(made, 0);
    ::SSL_CTX_set_session_cache_mode(made, SSL_SESS_CACHE_OFF);
    ::SSL_CTX_set_max_early_data(made, 0);
    ::SSL_CTX_set_recv_max_early_data(made, 0);
    ::SSL_CTX_set_mode(made, SSL_MODE_RELEASE_BUFFERS);
    ::SSL_CTX_set_verify(made, verification, nullptr);
    return context;
  };
  // A server that shows a certificate has not used the key, and there is no authority that could vouch for it.
  static const std::unique_ptr<SSL_CTX, Free> dialing = make(::TLS_client_method(), SSL_VERIFY_PEER);
  static const std::unique_ptr<SSL_CTX, Free> listening = make(::TLS_server_method(), SSL_VERIFY_NONE);
  return isListening ? listening.get() : dialing.get();
}

// OpenSSL's form of a key that both sides had before. Null when there is no memory.
SSL_SESSION* sessionOf(SSL* ssl, const corvane::Bytes32& key) {
  constexpr unsigned char kAes128GcmSha256[] = {0x13, 0x01};
  std::unique_ptr<SSL_SESSION, Free> session(::SSL_SESSION_new());
  const SSL_CIPHER* const cipher = ::SSL_CIPHER_find(ssl, kAes128GcmSha256);
  if (!session || cipher == nullptr || ::SSL_SESSION_set1_master_key(session.get(), key.data(), key.size()) != 1 ||
      ::SSL_SESSION_set_cipher(session.get(), cipher) != 1 ||
      ::SSL_SESSION_set_protocol_version(session.get(), TLS1_3_VERSION) != 1) {
    return nullptr;
  }
  return session.release();
}

// What the peer claims to be, short enough for a line that holds more than that.
std::wstring claimed(const std::string& identity) {
  constexpr std::size_t kLongest = 24;
  const std::wstring name = fromUtf8(identity);
  return name.size() <= kLongest ? name : name.substr(0, kLongest) + L"...";
}

bool isOtherLanguage(int reason) {
  switch (reason) {
    case SSL_R_WRONG_VERSION_NUMBER:
    case SSL_R_HTTP_REQUEST:
    case SSL_R_HTTPS_PROXY_REQUEST:
    case SSL_R_UNSUPPORTED_PROTOCOL:
    case SSL_R_UNEXPECTED_MESSAGE:
    case SSL_R_BAD_RECORD_TYPE:
    case SSL_R_PACKET_LENGTH_TOO_LONG:
    case SSL_R_TLSV1_ALERT_PROTOCOL_VERSION:
    case SSL_R_VERSION_TOO_LOW:
    case SSL_R_RECORD_LENGTH_MISMATCH:
      return true;
    default:
      return false;
  }
}

// As many bytes as the pieces become at most.
std::size_t encryptedSize(std::span<const corvane::Stream::Piece> pieces) {
  std::size_t bytes = 0;
  for (const auto& piece : pieces)
    bytes += piece.size();
  return bytes + (bytes / kRecord + 1) * kRecordOverhead;
}

std::wstring wordsOf(unsigned long error) {
  const char* const words = ::ERR_reason_error_string(error);
  return words == nullptr ? L"no reason was given" : fromUtf8(words);
}

}  // namespace

TlsStream::TlsStream(corvane::Socket socket, Role role) : m_socket(std::move(socket)), m_role(role) {
  m_ssl = ::SSL_new(contextOf(role == Role::kListening));
  BIO* const bio = m_ssl == nullptr ? nullptr : ::BIO_new(bioMethod());
  if (bio == nullptr) {
    ::SSL_free(m_ssl);
    throw std::bad_alloc();
  }
  ::BIO_set_data(bio, this);
  ::BIO_set_init(bio, 1);
  ::SSL_set_bio(m_ssl, bio, bio);
  SSL_set_app_data(m_ssl, this);
}

TlsStream::TlsStream(corvane::Socket socket, std::string identity, corvane::Key key)
    : TlsStream(std::move(socket), Role::kDialing) {
  m_identity = std::move(identity);
  m_key.emplace(std::move(key));
  ::SSL_set_psk_use_session_callback(m_ssl, &TlsStream::useKey);
  ::SSL_set_connect_state(m_ssl);
}

TlsStream::TlsStream(corvane::Socket socket, KeyFinder findKey) : TlsStream(std::move(socket), Role::kListening) {
  m_findKey = std::move(findKey);
  ::SSL_set_psk_find_session_callback(m_ssl, &TlsStream::findKey);
  ::SSL_set_accept_state(m_ssl);
}

TlsStream::~TlsStream() {
  ::SSL_free(m_ssl);
}

int TlsStream::useKey(SSL* ssl, const EVP_MD* digest, const unsigned char** identity, std::size_t* length,
                      SSL_SESSION** session) {
  const TlsStream& self = *static_cast<const TlsStream*>(SSL_get_app_data(ssl));
  *session = nullptr;
  if (digest != nullptr && ::EVP_MD_get_type(digest) != NID_sha256)
    return 1;  // the cipher that is asked for has no key
  *session = sessionOf(ssl, self.m_key->bytes());
  if (*session == nullptr) return 0;
  *identity = reinterpret_cast<const unsigned char*>(self.m_identity.data());
  *length = self.m_identity.size();
  return 1;
}

std::optional<corvane::Key> TlsStream::claimedKey(bool isWhole) try {
  std::optional<corvane::Key> key = isWhole ? m_findKey(m_identity) : std::nullopt;
  if (!key) m_keyTrouble = L"there is no such key here";
  return key;
} catch (const CS_Exception& failure) {
  m_keyTrouble = failure.detail();
  return std::nullopt;
}

int TlsStream::findKey(SSL* ssl, const unsigned char* identity, std::size_t length, SSL_SESSION** session) try {
  TlsStream& self = *static_cast<TlsStream*>(SSL_get_app_data(ssl));
  self.m_identity.assign(reinterpret_cast<const char*>(identity), std::min<std::size_t>(length, kMaxIdentity));
  const std::optional<corvane::Key> key = self.claimedKey(length <= kMaxIdentity);
  if (key) self.m_claimedMark = key->mark();
  // Without a key the handshake goes on with one that nobody has, and so fails in the same way as with a wrong one.
  corvane::Bytes32 nobodys;
  corvane::fillWithRandom(nobodys);
  *session = sessionOf(ssl, key ? key->bytes() : nobodys);
  return *session != nullptr ? 1 : 0;
} catch (...) {
  return 0;
}

void TlsStream::open(corvane::Deadline deadline) {
  releaseAtThreadEnd();
  for (;;) {
    bool isDone = false;
    bool wantsMore = false;
    {
      const std::lock_guard guard(m_lock);
      ::ERR_clear_error();
      const int result = ::SSL_do_handshake(m_ssl);
      isDone = result == 1;
      wantsMore = !isDone && ::SSL_get_error(m_ssl, result) == SSL_ERROR_WANT_READ;
    }
    if (!isDone && !wantsMore) refuseHandshake();
    flush();
    if (isDone) break;
    bool closed = false;
    if (!feed(deadline, closed)) {
      throw CS_Exception(corvane::kConnectFailed, L"the other side did not finish the TLS handshake in time");
    }
    if (closed) {
      throw CS_Exception(corvane::kConnectFailed, L"the other side closed the connection during the TLS handshake");
    }
  }
  const std::lock_guard guard(m_lock);
  // OpenSSL calls a connection whose key was there before a resumed one.
  if (::SSL_session_reused(m_ssl) != 1 || ::SSL_version(m_ssl) != TLS1_3_VERSION) {
    throw CS_Exception(corvane::kNotProven, L"the other side did not use the key");
  }
  if (m_role == Role::kListening) m_provenPeer = ProvenPeer{fromUtf8(m_identity), m_claimedMark};
}

void TlsStream::refuseHandshake() {
  const unsigned long error = ::ERR_peek_error();
  const int reason = ERR_GET_REASON(error);
  const std::wstring words = wordsOf(error);
  ::ERR_clear_error();
  try {
    flush();  // the alert
  } catch (const CS_Exception&) {
    // It has gone; the reason counts all the same.
  }
  if (isOtherLanguage(reason)) {
    throw CS_Exception(corvane::kProtocolViolation, L"the other side does not speak TLS 1.3: %s", words.c_str());
  }
  if (m_role == Role::kListening && m_identity.empty()) {
    throw CS_Exception(corvane::kNotProven, L"The peer offers no key: %s", words.c_str());
  }
  if (m_role == Role::kListening) {
    throw CS_Exception(corvane::kNotProven, L"The peer says that it is \"%s\": %s", claimed(m_identity).c_str(),
                       m_keyTrouble.empty() ? L"it has another key than the one here" : m_keyTrouble.c_str());
  }
  throw CS_Exception(
      corvane::kNotProven,
      L"the server does not take the key of \"%s\": it has another one or none, or what answers there is "
      L"no application server (%s); nothing was sent to it",
      fromUtf8(m_identity).c_str(), words.c_str());
}

const BIO_METHOD* TlsStream::bioMethod() {
  struct FreeMethod {
    void operator()(BIO_METHOD* method) const { ::BIO_meth_free(method); }
  };
  static const std::unique_ptr<BIO_METHOD, FreeMethod> kMethod = [] {
    std::unique_ptr<BIO_METHOD, FreeMethod> method(
        ::BIO_meth_new(::BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "connection"));
    if (!method) throw std::bad_alloc();
    ::BIO_meth_set_read_ex(method.get(), &TlsStream::bioRead);
    ::BIO_meth_set_write_ex(method.get(), &TlsStream::bioWrite);
    ::BIO_meth_set_ctrl(method.get(), [](BIO*, int command, long, void*) -> long { return command == BIO_CTRL_FLUSH; });
    return method;
  }();
  return kMethod.get();
}

int TlsStream::bioRead(BIO* bio, char* bytes, std::size_t size, std::size_t* done) {
  TlsStream& self = *static_cast<TlsStream*>(::BIO_get_data(bio));
  ::BIO_clear_retry_flags(bio);
  *done = std::min(size, self.m_to - self.m_from);
  if (*done == 0) {
    ::BIO_set_retry_read(bio);
    return 0;
  }
  std::memcpy(bytes, self.m_received.data() + self.m_from, *done);
  self.m_from += *done;
  return 1;
}

int TlsStream::bioWrite(BIO* bio, const char* bytes, std::size_t size, std::size_t* done) try {
  TlsStream& self = *static_cast<TlsStream*>(::BIO_get_data(bio));
  ::BIO_clear_retry_flags(bio);
  const auto* const begin = reinterpret_cast<const unsigned char*>(bytes);
  self.m_made.insert(self.m_made.end(), begin, begin + size);
  *done = size;
  return 1;
} catch (const std::bad_alloc&) {
  return 0;
}

bool TlsStream::feed(std::optional<corvane::Deadline> deadline, bool& closed) {
  {
    const std::lock_guard guard(m_lock);
    // OpenSSL has taken everything, or it would not have asked for more.
    const bool wasFilled = m_to == m_received.size();
    if (wasFilled && m_received.size() < kLargestReceive) {
      m_received = std::vector<unsigned char>(std::clamp(2 * m_received.size(), kFirstReceive, kLargestReceive));
    }
    m_from = m_to = 0;
  }
  const auto count = m_socket.receive(m_received, deadline);
  if (!count) return false;
  closed = *count == 0;
  const std::lock_guard guard(m_lock);
  m_to = *count;
  return true;
}

void TlsStream::flush() {
  {
    const std::lock_guard guard(m_lock);
    m_sending.swap(m_made);
    m_made.clear();
  }
  if (m_sending.empty()) return;
  const Piece whole(m_sending);
  m_socket.send(std::span(&whole, 1));
}

void TlsStream::encryptLocked(Piece bytes) {
  if (bytes.empty()) return;
  // Where nothing fails, OpenSSL keeps nothing about errors for this thread, which may end when the process does.
  std::size_t written = 0;
  if (::SSL_write_ex(m_ssl, bytes.data(), bytes.size(), &written) == 1 && written == bytes.size()) return;
  const std::wstring words = wordsOf(::ERR_peek_last_error());
  ::ERR_clear_error();
  throw CS_Exception(corvane::kConnectionLost, L"nothing more can be encrypted: %s", words.c_str());
}

void TlsStream::send(std::span<const Piece> pieces) {
  releaseAtThreadEnd();
  while (!pieces.empty()) {
    {
      const std::lock_guard guard(m_lock);
      m_made.reserve(m_made.size() + encryptedSize(pieces));
      for (; !pieces.empty() && m_made.size() < kSendAtOnce; pieces = pieces.subspan(1))
        gatherLocked(pieces.front());
      if (pieces.empty()) encryptLocked(m_plain);
      m_sending.swap(m_made);
      m_made.clear();
    }
    if (pieces.empty()) m_plain.clear();
    const Piece whole(m_sending);
    m_socket.send(std::span(&whole, 1));
    // A connection that is idle most of the time holds no buffers for that.
    if (m_sending.capacity() > kKept) m_sending = std::vector<unsigned char>();  // "= {}" would keep its room
  }
}

// Headers and small values share a record with what follows them.
void TlsStream::gatherLocked(Piece piece) {
  if (!m_plain.empty()) {
    const Piece first = piece.first(std::min(kRecord - m_plain.size(), piece.size()));
    m_plain.insert(m_plain.end(), first.begin(), first.end());
    piece = piece.subspan(first.size());
    if (m_plain.size() < kRecord) return;
    encryptLocked(m_plain);
    m_plain.clear();
  }
  const Piece whole = piece.first(piece.size() - piece.size() % kRecord);
  encryptLocked(whole);
  const Piece rest = piece.subspan(whole.size());
  m_plain.insert(m_plain.end(), rest.begin(), rest.end());
}

std::size_t TlsStream::readLocked(std::span<unsigned char> buffer, bool& closed) {
  std::size_t done = 0;
  while (done < buffer.size()) {
    ::ERR_clear_error();
    std::size_t now = 0;
    const int result = ::SSL_read_ex(m_ssl, buffer.data() + done, buffer.size() - done, &now);
    if (result == 1) {
      done += now;
      continue;
    }
    const int error = ::SSL_get_error(m_ssl, result);
    if (error == SSL_ERROR_ZERO_RETURN) closed = true;
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_ZERO_RETURN || done > 0) break;
    const std::wstring words = wordsOf(::ERR_peek_error());
    ::ERR_clear_error();
    throw CS_Exception(corvane::kConnectionLost, L"what came is not what the other side has encrypted: %s",
                       words.c_str());
  }
  if (m_made.size() > kMaxUnsent) {
    throw CS_Exception(corvane::kLimitExceeded, L"the other side changes its keys without end");
  }
  return done;
}

std::optional<std::size_t> TlsStream::receive(std::span<unsigned char> buffer,
                                              std::optional<corvane::Deadline> deadline) {
  releaseAtThreadEnd();
  for (bool closed = false;;) {
    {
      const std::lock_guard guard(m_lock);
      if (const std::size_t done = readLocked(buffer, closed); done > 0) return done;
    }
    if (closed) return 0;
    if (!feed(deadline, closed)) return std::nullopt;
    if (closed) return 0;
  }
}

std::optional<int> TlsStream::idleHandle() const noexcept {
  const std::lock_guard guard(m_lock);
  return m_from != m_to || ::SSL_has_pending(m_ssl) == 1 ? std::nullopt : m_socket.idleHandle();
}

}  // namespace tls
