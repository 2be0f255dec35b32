#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"

#include <algorithm>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <unistd.h>

namespace corvane {

Bytes32 hmacSha256(std::span<const unsigned char> key, std::span<const unsigned char> message) {
  Bytes32 digest;
  unsigned length = 0;
  if (::HMAC(::EVP_sha256(), key.data(), static_cast<int>(key.size()), message.data(), message.size(), digest.data(),
             &length) == nullptr ||
      length != digest.size()) {
    throw CS_Exception(kMissingObject, L"the system makes no message digest");
  }
  return digest;
}

// From the system itself: OpenSSL makes a generator for each thread, and a thread serves one connection.
void fillWithRandom(std::span<unsigned char> bytes) {
  constexpr std::size_t kAtOnce = 256;  // what the system gives in one call
  for (; !bytes.empty(); bytes = bytes.subspan(std::min(bytes.size(), kAtOnce))) {
    if (::getentropy(bytes.data(), std::min(bytes.size(), kAtOnce)) != 0) {
      throw CS_Exception(kMissingObject, L"the system gives no random numbers");
    }
  }
}

void wipe(std::span<unsigned char> secret) noexcept {
  ::OPENSSL_cleanse(secret.data(), secret.size());
}

bool equalInConstantTime(const Bytes32& one, const Bytes32& other) {
  return ::CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

}  // namespace corvane
