#pragma once

#include <string>
#include <string_view>

namespace programs {

// Where a server is reached: "print.example:4712", "10.0.0.1:4712" or "[::1]:4712".
struct HostAndPort {
  std::string host;  // a name or an address, without brackets
  int port = 0;      // 1 to 65535

  std::string text() const;
  // Throws std::invalid_argument with words that begin with the text in quotes.
  static HostAndPort parse(std::string_view text);
};

}  // namespace programs
