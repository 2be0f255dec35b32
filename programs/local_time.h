#pragma once

#include <string>
#include <string_view>

namespace programs {

// A time of the wire, "2026-01-31T23:59:59Z", as a person reads it: local, with its offset (corvane/base/local_time.h).
// Another text comes back as one line of it.
std::string localTime(std::wstring_view utc);

}  // namespace programs
