#pragma once

#include "corvane/net/socket.h"
#include "corvane/trust/key.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct bio_method_st;
struct bio_st;
struct evp_md_st;
struct ssl_st;
struct ssl_session_st;

namespace tls {

// A connection under TLS 1.3 (RFC 8446) whose two ends know each other by a key that both had before: no certificates,
// and with fresh keys for each connection (psk_dhe_ke), so that a key that gets lost later opens nothing that was
// recorded. Neither data in the first flight nor tickets nor another version or cipher are spoken; a server that shows
// a certificate instead is refused. OpenSSL does all of it; what is here moves bytes between it and the socket.
//
// The lock of the two directions is held while OpenSSL works, never while the socket waits. A clean end is the business
// of what is spoken inside: this layer takes the end of the socket for the end.
class TlsStream final : public corvane::Stream {
 public:
  // The key of an identity, asked once in the handshake; nothing for an identity that has none. A CS_Exception tells
  // why a key that is there cannot be used.
  using KeyFinder = std::function<std::optional<corvane::Key>(const std::string& identity)>;

  // The side that dialed.
  TlsStream(corvane::Socket socket, std::string identity, corvane::Key key);
  // The listening side.
  TlsStream(corvane::Socket socket, KeyFinder findKey);
  ~TlsStream() override;
  TlsStream(const TlsStream&) = delete;
  TlsStream& operator=(const TlsStream&) = delete;

  // The TLS handshake. Throws CS_Exception: 3109 when the other side has not the same key, 3105 when it speaks
  // something else, 3101 when it does not finish in time. The other side gets TLS's alert; it cannot tell an identity
  // without a key from one with another key.
  void open(corvane::Deadline deadline) override;
  // On the listening side the identity whose key the peer has; nothing on the other side.
  std::optional<ProvenPeer> provenPeer() const override { return m_provenPeer; }

  void setPatience(const corvane::Patience& patience) override { m_socket.setPatience(patience); }
  void send(std::span<const Piece> pieces) override;
  bool hasRoom() const noexcept override { return m_socket.hasRoom(); }
  std::optional<std::size_t> receive(std::span<unsigned char> buffer,
                                     std::optional<corvane::Deadline> deadline) override;
  bool returnWhenIdle(std::chrono::milliseconds idle) override { return m_socket.returnWhenIdle(idle); }
  std::optional<int> idleHandle() const noexcept override;
  void shutdown() noexcept override { m_socket.shutdown(); }
  void close() noexcept override { m_socket.close(); }
  bool peerHasClosed() const noexcept override { return m_socket.peerHasClosed(); }
  std::string peerName() const override { return m_socket.peerName(); }
  std::vector<unsigned char> localEndpoint() const override { return m_socket.localEndpoint(); }
  std::vector<unsigned char> peerEndpoint() const override { return m_socket.peerEndpoint(); }

 private:
  enum class Role { kDialing, kListening };
  TlsStream(corvane::Socket socket, Role role);
  std::optional<corvane::Key> claimedKey(bool isWhole);
  static int useKey(ssl_st* ssl, const evp_md_st* digest, const unsigned char** identity, std::size_t* length,
                    ssl_session_st** session);
  static int findKey(ssl_st* ssl, const unsigned char* identity, std::size_t length, ssl_session_st** session);

  // OpenSSL takes what was received, and gives what is to be sent, through one BIO of this object.
  static const bio_method_st* bioMethod();
  static int bioRead(bio_st* bio, char* bytes, std::size_t size, std::size_t* done);
  static int bioWrite(bio_st* bio, const char* bytes, std::size_t size, std::size_t* done);

  // Receives once; false when nothing came until the deadline.
  bool feed(std::optional<corvane::Deadline> deadline, bool& closed);
  // Sends what OpenSSL has made. By the sending thread, or in open().
  void flush();
  void gatherLocked(Piece piece);
  void encryptLocked(Piece bytes);
  std::size_t readLocked(std::span<unsigned char> buffer, bool& closed);
  [[noreturn]] void refuseHandshake();

  corvane::Socket m_socket;
  const Role m_role;
  std::string m_identity;  // own, or the one that the peer claims
  std::optional<corvane::Key> m_key;
  KeyFinder m_findKey;
  std::wstring m_keyTrouble;                         // why the claimed identity has no key that can be used
  std::array<unsigned char, 32> m_claimedMark = {};  // of the key of that one
  std::optional<ProvenPeer> m_provenPeer;

  std::vector<unsigned char> m_plain;    // of the sending thread: small pieces that become one record
  std::vector<unsigned char> m_sending;  // and what is on its way to the socket

  // Guards what follows, as OpenSSL lets only one thread use a connection at a time. Between two uses by the sending
  // thread nothing of what it has encrypted is left in m_made.
  mutable std::mutex m_lock;
  ssl_st* m_ssl = nullptr;
  std::vector<unsigned char> m_made;      // encrypted and not sent
  std::vector<unsigned char> m_received;  // encrypted; filled by the receiving thread
  std::size_t m_from = 0;                 // of it, not yet taken by OpenSSL
  std::size_t m_to = 0;
};

}  // namespace tls
