#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"

#include <windows.h>

#include <bcrypt.h>

namespace corvane {
namespace {

// The system's own handle of HMAC-SHA-256 (Windows 10 and later; BCRYPT_HMAC_SHA256_ALG_HANDLE in newer headers). It is
// never opened or closed, which would cost time in every job and would have to be undone while the module is unloaded.
const BCRYPT_ALG_HANDLE kHmacSha256 = reinterpret_cast<BCRYPT_ALG_HANDLE>(0x000000b1);

void require(NTSTATUS status, const wchar_t* what) {
  if (status < 0) {
    throw CS_Exception(kMissingObject, L"%s: status 0x%08x", what, static_cast<unsigned>(status));
  }
}

// BCrypt reads through pointers that are not const.
unsigned char* readable(std::span<const unsigned char> bytes) {
  return const_cast<unsigned char*>(bytes.data());
}

}  // namespace

Bytes32 hmacSha256(std::span<const unsigned char> key, std::span<const unsigned char> message) {
  Bytes32 digest;
  require(::BCryptHash(kHmacSha256, readable(key), static_cast<ULONG>(key.size()), readable(message),
                       static_cast<ULONG>(message.size()), digest.data(), static_cast<ULONG>(digest.size())),
          L"the system makes no message digest");
  return digest;
}

void fillWithRandom(std::span<unsigned char> bytes) {
  require(::BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG),
          L"the system gives no random numbers");
}

void wipe(std::span<unsigned char> secret) noexcept {
  ::SecureZeroMemory(secret.data(), secret.size());
}

bool equalInConstantTime(const Bytes32& one, const Bytes32& other) {
  volatile unsigned char different = 0;
  for (std::size_t i = 0; i < one.size(); ++i)
    different = static_cast<unsigned char>(different | (one[i] ^ other[i]));
  return different == 0;
}

}  // namespace corvane
