// The raw yardstick of jobs under TLS: a relay that encrypts what comes with OpenSSL's own calls, and a sink that
// decrypts it into a file: TLS 1.3 with a key that both had before and TLS_AES_128_GCM_SHA256. Linux only.
//
//   raw_tls sink FOLDER
//   raw_tls relay SINK-PORT
//
// Each prints "raw_tls listens on PORT". A stream begins and ends as in bench/raw_hops.cpp.

#include "bench/raw_peer.h"
#include "corvane/records/exception.h"
#include "corvane/wire/frame.h"

#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::array<unsigned char, 32> kKey = {1, 2, 3};
constexpr char kIdentity[] = "bench";
constexpr std::size_t kBuffer = 256 * 1024;

void require(bool isDone, const char* what) {
  if (!isDone) throw std::runtime_error(what);
}

SSL_SESSION* sessionOf(SSL* ssl) {
  constexpr unsigned char kAes128GcmSha256[] = {0x13, 0x01};
  SSL_SESSION* const session = SSL_SESSION_new();
  SSL_SESSION_set1_master_key(session, kKey.data(), kKey.size());
  SSL_SESSION_set_cipher(session, SSL_CIPHER_find(ssl, kAes128GcmSha256));
  SSL_SESSION_set_protocol_version(session, TLS1_3_VERSION);
  return session;
}

int useKey(SSL* ssl, const EVP_MD*, const unsigned char** identity, std::size_t* length, SSL_SESSION** session) {
  *identity = reinterpret_cast<const unsigned char*>(kIdentity);
  *length = sizeof kIdentity - 1;
  *session = sessionOf(ssl);
  return 1;
}

int findKey(SSL* ssl, const unsigned char*, std::size_t, SSL_SESSION** session) {
  *session = sessionOf(ssl);
  return 1;
}

SSL_CTX* makeContext(const SSL_METHOD* method) {
  SSL_CTX* const context = SSL_CTX_new(method);
  SSL_CTX_set_min_proto_version(context, TLS1_3_VERSION);
  SSL_CTX_set_ciphersuites(context, "TLS_AES_128_GCM_SHA256");
  SSL_CTX_set_num_tickets(context, 0);
  SSL_CTX_set_psk_use_session_callback(context, useKey);
  SSL_CTX_set_psk_find_session_callback(context, findKey);
  return context;
}

struct CloseTls {
  void operator()(SSL* ssl) const {
    const int socket = SSL_get_fd(ssl);
    SSL_free(ssl);
    close(socket);
  }
};
using Tls = std::unique_ptr<SSL, CloseTls>;

Tls makeTls(SSL_CTX* context, int socket) {
  const int on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  Tls tls(SSL_new(context));
  SSL_set_fd(tls.get(), socket);
  return tls;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A stream that comes in the clear goes on encrypted, and the sink's answer comes back.
void relay(corvane::Socket in, std::uint16_t sinkPort) try {
  static SSL_CTX* const context = makeContext(TLS_client_method());
  unsigned char head[9];
  bench::receiveAll(in, head);
  std::uint64_t left = corvane::loadLittleEndian32(head + 1) | std::uint64_t{corvane::loadLittleEndian32(head + 5)}
                                                                   << 32;
  const sockaddr_in address = loopback(sinkPort);
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  require(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "no sink");
  const Tls out = makeTls(context, socket);
  require(SSL_connect(out.get()) == 1, "no TLS with the sink");
  require(SSL_write(out.get(), head, sizeof head) == sizeof head, "the sink takes nothing");
  std::vector<unsigned char> buffer(kBuffer);
  while (left > 0) {
    const std::size_t got = *in.receive(buffer, std::nullopt);
    require(got > 0, "the sender has gone");
    require(SSL_write(out.get(), buffer.data(), static_cast<int>(got)) == static_cast<int>(got), "the sink has gone");
    left -= got;
  }
  unsigned char done = 0;
  require(SSL_read(out.get(), &done, 1) == 1, "no answer of the sink");
  bench::sendAll(in, {&done, 1});
} catch (const CS_Exception&) {
  // The sender has gone.
} catch (const std::exception& failure) {
  std::fprintf(stderr, "raw_tls: %s\n", failure.what());
}

void readAll(SSL* ssl, unsigned char* bytes, int size) {
  for (int done = 0; done < size;) {
    const int got = SSL_read(ssl, bytes + done, size - done);
    require(got > 0, "the relay has gone");
    done += got;
  }
}

void sink(int socket, const std::string& path) try {
  static SSL_CTX* const context = makeContext(TLS_server_method());
  const Tls in = makeTls(context, socket);
  require(SSL_accept(in.get()) == 1, "no TLS with the relay");
  unsigned char head[9];
  readAll(in.get(), head, sizeof head);
  std::uint64_t left = corvane::loadLittleEndian32(head + 1) | std::uint64_t{corvane::loadLittleEndian32(head + 5)}
                                                                   << 32;
  const std::string temporary = path + ".part";
  const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  require(file >= 0, "no file");
  std::vector<unsigned char> buffer(kBuffer);
  while (left > 0) {
    const int got = SSL_read(in.get(), buffer.data(), static_cast<int>(buffer.size()));
    require(got > 0, "the relay has gone");
    require(write(file, buffer.data(), static_cast<std::size_t>(got)) == got, "the file takes nothing");
    left -= static_cast<std::uint64_t>(got);
  }
  require(fsync(file) == 0 && rename(temporary.c_str(), path.c_str()) == 0, "the file is not on the disk");
  close(file);
  const unsigned char done = 1;
  SSL_write(in.get(), &done, 1);
} catch (const std::exception& failure) {
  std::fprintf(stderr, "raw_tls: %s\n", failure.what());
}

void sayPort(std::uint16_t port) {
  std::printf("raw_tls listens on %d\n", static_cast<int>(port));
  std::fflush(stdout);
}

void serveSink(const std::string& folder) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  require(bind(listener, reinterpret_cast<const sockaddr*>(&address), size) == 0 && listen(listener, 100) == 0,
          "no listener");
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  sayPort(ntohs(address.sin_port));
  for (int number = 1;; ++number) {
    const int socket = accept(listener, nullptr, nullptr);
    if (socket >= 0) std::thread(sink, socket, folder + "/raw-" + std::to_string(number)).detach();
  }
}

void serveRelay(std::uint16_t sinkPort) {
  corvane::Listener listener("127.0.0.1:0");
  sayPort(listener.port());
  while (auto socket = listener.accept())
    std::thread(relay, std::move(*socket), sinkPort).detach();
}

}  // namespace

int main(int count, char** arguments) try {
  corvane::initializeNetwork();
  std::signal(SIGTERM, [](int) { _exit(0); });
  const std::string role = count == 3 ? arguments[1] : "";
  if (role == "sink") serveSink(arguments[2]);
  if (role == "relay") serveRelay(static_cast<std::uint16_t>(std::atoi(arguments[2])));
  std::fprintf(stderr, "usage: raw_tls sink FOLDER | raw_tls relay SINK-PORT\n");
  return 2;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "raw_tls: %s\n", failure.what());
  return 1;
}
