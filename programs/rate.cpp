#include "programs/rate.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <stdexcept>
#include <string>

namespace programs {

std::uint64_t parseRate(const std::string& text) {
  std::uint64_t rate = 0;
  try {
    std::string number = text;
    constexpr bool kIsKbThousand = true;
    const CLI::AsSizeValue toBytes(kIsKbThousand);
    toBytes(number);
    rate = std::stoull(number);
  } catch (const std::exception&) {
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
