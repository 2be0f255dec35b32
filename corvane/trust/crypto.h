#pragma once

#include <array>
#include <cstddef>
#include <span>

// What this layer needs of cryptography, from the system (BCrypt) or from OpenSSL; none of it is our own. Safe from any
// thread. Nothing stays open between calls, so there is nothing to close when the module is unloaded.
namespace corvane {

using Bytes32 = std::array<unsigned char, 32>;

// Throws CS_Exception (3014) when the system's cryptography fails, which it does not as a rule.
Bytes32 hmacSha256(std::span<const unsigned char> key, std::span<const unsigned char> message);
// Bytes that cannot be predicted. Fails likewise.
void fillWithRandom(std::span<unsigned char> bytes);

// Takes the same time wherever the two differ.
bool equalInConstantTime(const Bytes32& one, const Bytes32& other);
// Overwrites a secret that is about to go out of use; the compiler does not leave it out.
void wipe(std::span<unsigned char> secret) noexcept;

}  // namespace corvane
