#pragma once

#include <chrono>
#include <string>

namespace aps {

// A time as "2026-01-31T23:59:59Z".
std::wstring utcText(std::chrono::system_clock::time_point time);

}  // namespace aps
