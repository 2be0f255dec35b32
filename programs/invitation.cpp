#include "programs/invitation.h"

#include "corvane/trust/crypto.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <span>
#include <stdexcept>

namespace programs {
namespace {

constexpr std::string_view kSession = "session-";
constexpr std::size_t kCodeDigits = 32;

[[noreturn]] void refuse(const char* what) {
  throw std::invalid_argument(
      fmt::format("this is no invitation: {}; one looks like mgprint://print.example:4712/session-5/ and {} "
                  "hexadecimal digits, and "
                  "has to be taken over as a whole",
                  what, kCodeDigits));
}

}  // namespace

std::string Invitation::newCode() {
  std::array<unsigned char, kCodeDigits / 2> bits;
  corvane::fillWithRandom(bits);
  return fmt::format("{:02x}", fmt::join(bits, ""));
}

// Keys have one length, and a code is half as long; nothing else becomes of a code than this.
corvane::Key Invitation::keyOf(std::string_view code) {
  const auto bytes = [](std::string_view text) {
    return std::span(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  };
  return corvane::Key(corvane::hmacSha256(bytes(code), bytes("mgprint invitation")));
}

std::string Invitation::text() const {
  return fmt::format("{}{}/{}{}/{}", Invitation::kScheme, server.text(), kSession, session, code);
}

Invitation Invitation::parse(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  text.remove_suffix(text.size() - std::min(text.find_last_not_of(kBlanks) + 1, text.size()));
  if (!text.starts_with(kScheme)) refuse("it does not begin with mgprint://");
  text.remove_prefix(kScheme.size());
  const std::size_t first = text.find('/');
  const std::size_t second = first == std::string_view::npos ? first : text.find('/', first + 1);
  if (second == std::string_view::npos) refuse("it ends before its code");
  std::string_view session = text.substr(first + 1, second - first - 1);
  if (!session.starts_with(kSession)) refuse("it names no session");
  session.remove_prefix(kSession.size());
  int number = 0;
  const auto [end, error] = std::from_chars(session.data(), session.data() + session.size(), number);
  if (error != std::errc() || end != session.data() + session.size() || number < 1 || session.front() == '0') {
    refuse("it names no session");
  }
  const std::string code(text.substr(second + 1));
  if (code.size() != kCodeDigits || code.find_first_not_of("0123456789abcdef") != std::string::npos) {
    refuse("its code is cut or changed");
  }
  try {
    return {HostAndPort::parse(text.substr(0, first)), number, code};
  } catch (const std::invalid_argument&) {
    refuse("it names no host and port");
  }
}

}  // namespace programs
