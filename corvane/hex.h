#pragma once

#include "corvane/crypto.h"

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// Nonces and proofs as they travel: 64 hexadecimal digits.
std::wstring toHex(const Bytes32& bytes);
// Nothing when the text is anything else; letters may be of either case.
std::optional<Bytes32> fromHex(std::wstring_view digits);

// The value of one digit, or -1.
int hexValue(unsigned character);

}  // namespace corvane
