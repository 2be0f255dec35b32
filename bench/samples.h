#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

// What the programs of this folder have in common: they measure by turns and print what each turn gave, for
// bench/run.py to make figures of.
namespace bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// One turn of one side, as a line of JSON on the standard output. A measurement and a side are plain words.
inline void sample(const std::string& measurement, const char* side, double value) {
  std::printf("{\"measurement\": \"%s\", \"side\": \"%s\", \"value\": %.9g}\n", measurement.c_str(), side, value);
  std::fflush(stdout);
}
inline constexpr const char* kRaw = "raw";
inline constexpr const char* kProduct = "product";

// The raw tool and the product in turns: a turn to warm up, which is not counted, and then so many.
template <class Raw, class Product>
void takeTurns(const std::string& measurement, int rounds, Raw raw, Product product) {
  raw();
  product();
  for (int round = 0; round < rounds; ++round) {
    sample(measurement, kRaw, raw());
    sample(measurement, kProduct, product());
  }
}

// The value below which that part of all values lies, 0.5 being the median. Not of nothing.
inline double quantile(std::vector<double> values, double part) {
  const auto at = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

// The seconds that one call takes: the median of so many.
template <class Call>
double secondsOf(int count, Call call) {
  std::vector<double> each;
  for (int i = 0; i < count; ++i) {
    const auto start = Clock::now();
    call();
    each.push_back(secondsSince(start));
  }
  return quantile(std::move(each), 0.5);
}

// Whether the word stands in a list like "request,request-p99".
inline bool isAsked(const std::string& list, const std::string& measurement) {
  return ("," + list + ",").find("," + measurement + ",") != std::string::npos;
}

// Ends the measurements; see runMeasurements() in bench/raw_peer.h.
[[noreturn]] inline void giveUp(const std::string& why) {
  throw std::runtime_error(why);
}

}  // namespace bench
