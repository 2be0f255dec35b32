#include "programs/rate.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <stdexcept>

namespace programs {

std::uint64_t parseRate(const std::string& text) {
  std::uint64_t rate = 0;
  std::string number = text;
  const std::string wrong = CLI::AsSizeValue(false)(number);
  if (!wrong.empty() || !CLI::detail::lexical_cast(number, rate)) {
    throw std::invalid_argument(
        fmt::format("\"{}\" is not a rate; an example is 250KB, which are bytes a second", text.substr(0, 100)));
  }
  if (rate < kLeastRate) {
    throw std::invalid_argument(
        fmt::format("a rate of {} bytes a second is too low; {} is the least", rate, kLeastRate));
  }
  return rate;
}

}  // namespace programs
