#pragma once

#include "util/utl_string.h"

#include <cstddef>
#include <string>

// A text that travels as UTF-8. In both directions only well-formed text passes: anything else, a null byte inside
// included, throws UTL_Exception with mg::status::kConversion.
class UTF8String : public UTL_String {
 public:
  using UTL_String::UTL_String;
  UTF8String(const char* bytes, std::size_t size);
  ~UTF8String() override = default;
  UTF8String(const UTF8String&) = default;
  UTF8String(UTF8String&&) noexcept = default;
  UTF8String& operator=(const UTF8String&) = default;
  UTF8String& operator=(UTF8String&&) noexcept = default;
  using UTL_String::operator=;

  std::string bytes() const;
};
