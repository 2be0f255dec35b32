#pragma once

#include "corvane/wire/thin_line.h"

#include <cstdint>
#include <string>

namespace programs {

// The least that may be asked for.
inline constexpr std::uint64_t kLeastRate = corvane::ThinLine::kLeastRate;

// Bytes a second from "250KB", "2MB" or a plain number; a KB is 1,000 bytes, a KiB 1,024. Throws std::invalid_argument
// that says what is wrong and shows an example.
std::uint64_t parseRate(const std::string& text);

}  // namespace programs
