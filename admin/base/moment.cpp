#include "admin/base/moment.h"

#include <charconv>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>
#include <string>

namespace admin {
namespace {

using std::chrono::system_clock;

// Midnight of the day that lies so many days before.
system_clock::time_point midnight(system_clock::time_point now, int daysBefore) {
  const std::time_t seconds = system_clock::to_time_t(now);
  std::tm local = *std::localtime(&seconds);
  local.tm_mday -= daysBefore;
  local.tm_hour = local.tm_min = local.tm_sec = 0;
  local.tm_isdst = -1;
  return system_clock::from_time_t(std::mktime(&local));
}

// "2h"; nothing for another text.
std::optional<std::chrono::minutes> parseAge(std::string_view text) {
  int count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || count < 0 || count > 1000000 || end + 1 != text.data() + text.size()) return std::nullopt;
  switch (*end) {
    case 'm':
      return std::chrono::minutes(count);
    case 'h':
      return std::chrono::hours(count);
    case 'd':
      return std::chrono::hours(24) * count;
    default:
      return std::nullopt;
  }
}

// "2026-01-31" or "2026-01-31 14:30"; nothing for another text, and for a day or minute that there is not.
std::optional<system_clock::time_point> parseDate(const std::string& text) {
  std::tm local{};
  int used = 0;
  int fields = std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &local.tm_year, &local.tm_mon, &local.tm_mday, &used);
  if (fields != 3 || used != 10) return std::nullopt;
  if (text.size() > 10) {
    fields = std::sscanf(text.c_str() + 10, " %2d:%2d%n", &local.tm_hour, &local.tm_min, &used);
    if (fields != 2 || used != 6 || text.size() != 16) return std::nullopt;
  }
  local.tm_year -= 1900;
  local.tm_mon -= 1;
  local.tm_isdst = -1;
  const std::tm wanted = local;
  const std::time_t seconds = std::mktime(&local);
  const bool isSame = seconds != -1 && local.tm_mday == wanted.tm_mday && local.tm_mon == wanted.tm_mon &&
                      wanted.tm_hour < 24 && local.tm_min == wanted.tm_min;
  return isSame ? std::optional(system_clock::from_time_t(seconds)) : std::nullopt;
}

}  // namespace

system_clock::time_point parseMoment(std::string_view text, system_clock::time_point now) {
  if (text == "now") return now;
  if (text == "today") return midnight(now, 0);
  if (text == "yesterday") return midnight(now, 1);
  if (const auto age = parseAge(text)) return now - *age;
  if (const auto date = parseDate(std::string(text))) return *date;
  throw std::invalid_argument(fmt::format(
      "\"{}\" is no time; give today, yesterday, an age such as 90m, 2h or 3d, a day such as 2026-01-31, or a "
      "minute such as \"2026-01-31 14:30\"",
      text));
}

}  // namespace admin
