#include "programs/host_and_port.h"

#include <charconv>
#include <fmt/format.h>
#include <stdexcept>

namespace programs {
namespace {

// 0 for what is no port.
int portOf(std::string_view digits) {
  int port = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  const bool isWhole = error == std::errc() && end == digits.data() + digits.size() && digits.front() != '-';
  return isWhole && port <= 65535 ? port : 0;
}

}  // namespace

std::string HostAndPort::text() const {
  return host.find(':') != std::string::npos ? fmt::format("[{}]:{}", host, port) : fmt::format("{}:{}", host, port);
}

HostAndPort HostAndPort::parse(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  const int port = colon == std::string_view::npos ? 0 : portOf(text.substr(colon + 1));
  if (colon == 0 || port == 0) {
    throw std::invalid_argument(fmt::format("\"{}\" is not host and port; an example is 127.0.0.1:4711", text));
  }
  std::string_view host = text.substr(0, colon);
  const bool hasBrackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (hasBrackets) host = host.substr(1, host.size() - 2);
  if (hasBrackets != (host.find(':') != std::string_view::npos) ||
      host.find_first_of("[]/ ") != std::string_view::npos) {
    throw std::invalid_argument(
        fmt::format("\"{}\" is not host and port; an IPv6 address stands in brackets, as in [::1]:4711", text));
  }
  return {std::string(host), port};
}

}  // namespace programs
