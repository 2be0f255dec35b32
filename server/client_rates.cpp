#include "server/client_rates.h"

#include "programs/rate.h"

#include <charconv>
#include <fmt/format.h>
#include <stdexcept>

namespace aps {

std::uint64_t ClientRates::of(int session) const {
  const auto found = ofSessions.find(session);
  return found == ofSessions.end() ? ofEach : found->second;
}

void ClientRates::add(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    ofEach = programs::parseRate(text);
    return;
  }
  int session = 0;
  const char* const end = text.data() + equals;
  const auto [stop, error] = std::from_chars(text.data(), end, session);
  if (error != std::errc() || stop != end || session < 1) {
    throw std::invalid_argument(
        fmt::format("\"{}\" does not begin with the number of a session; an example is 5=250KB", text.substr(0, 100)));
  }
  ofSessions[session] = programs::parseRate(text.substr(equals + 1));
}

}  // namespace aps
