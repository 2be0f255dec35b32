#pragma once

#include "corvane/trust/key.h"
#include "programs/host_and_port.h"

#include <string>
#include <string_view>

namespace programs {

// The line by which somebody comes by the key of a session: where the server is, which session it is, and a code of 128
// bits that is good once. As a URI (RFC 3986), so that a desktop can open it:
// "mgprint://print.example:4712/session-5/0123456789abcdef0123456789abcdef".
struct Invitation {
  HostAndPort server;
  int session = 0;   // 1 or more
  std::string code;  // 32 hexadecimal digits

  // A random code.
  static std::string newCode();
  // The key of the connection on which the invitation is redeemed.
  static corvane::Key keyOf(std::string_view code);

  std::string text() const;
  // Blanks and line ends around it do not count. Throws std::invalid_argument that says what is wrong with it.
  static Invitation parse(std::string_view text);

  static constexpr std::string_view kScheme = "mgprint://";
};

}  // namespace programs
