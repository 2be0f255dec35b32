#include "programs/text.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>

namespace programs {

std::string oneLine(std::wstring_view text) {
  std::string result = corvane::printable(text.substr(0, kLineBytes));
  if (result.size() <= kLineBytes && text.size() <= kLineBytes) return result;
  std::size_t end = std::min(result.size(), kLineBytes);
  while (end > 0 && end < result.size() && (static_cast<unsigned char>(result[end]) & 0xC0) == 0x80)
    --end;
  return result.substr(0, end) + "...";
}

std::string quoted(std::wstring_view text) {
  return fmt::format("\"{}\"", oneLine(text));
}

std::string describe(const CS_Exception& failure) {
  const std::wstring_view detail = failure.detail();
  if (failure.number() == 0) return oneLine(detail);
  const std::string message = oneLine(corvane::messageText(failure.number()));
  return detail.empty() ? message : fmt::format("{} {}", message, oneLine(detail));
}

std::wstring utcText(std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss<seconds> clock(floor<seconds>(time - day));
  return fmt::format(L"{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                     clock.minutes().count(), clock.seconds().count());
}

namespace {

constexpr std::wstring_view kUtcPattern = L"0000-00-00T00:00:00Z";

bool isUtcText(std::wstring_view text) {
  if (text.size() != kUtcPattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDigit = text[i] >= L'0' && text[i] <= L'9';
    if (kUtcPattern[i] == L'0' ? !isDigit : text[i] != kUtcPattern[i]) return false;
  }
  return true;
}

int number(std::wstring_view digits) {
  int value = 0;
  for (const wchar_t digit : digits)
    value = 10 * value + (digit - L'0');
  return value;
}

}  // namespace

std::string localTime(std::wstring_view utc) {
  using namespace std::chrono;
  if (!isUtcText(utc)) return oneLine(utc);
  const auto part = [&](std::size_t at, std::size_t length = 2) { return number(utc.substr(at, length)); };
  const year_month_day date = year(part(0, 4)) / part(5) / part(8);
  // Before 1970 not every platform knows the local time.
  if (!date.ok() || part(0, 4) < 1971 || part(11) > 23 || part(14) > 59 || part(17) > 59) return oneLine(utc);
  return corvane::localTimeText(sys_days(date) + hours(part(11)) + minutes(part(14)) + seconds(part(17)));
}

std::filesystem::path toPath(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string fromPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

std::string lastLine(const std::string& text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t last = text.find_last_not_of(kBlanks);
  if (last == std::string::npos) return "";
  const std::size_t lineEnd = text.find_last_of("\r\n", last);
  const std::size_t first = text.find_first_not_of(kBlanks, lineEnd == std::string::npos ? 0 : lineEnd + 1);
  return text.substr(first, last - first + 1);
}

}  // namespace programs
