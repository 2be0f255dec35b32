#pragma once

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/corvane/socket_fixture.h"
#include "tests/support/joined_thread.h"
#include "tls/tls_stream.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <openssl/crypto.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using corvane::Key;
using tls::TlsStream;
using Failure = std::pair<int, std::wstring>;

inline Key keyOf(unsigned char byte) {
  corvane::Bytes32 bytes;
  bytes.fill(byte);
  return Key(bytes);
}

inline Failure failureOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const CS_Exception& failure) {
    return {failure.number(), failure.detail()};
  }
  return {0, L""};
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

inline const bool kCounts = OpenSslMemory::take();

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
