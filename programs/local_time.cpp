#include "programs/local_time.h"

#include "corvane/base/local_time.h"
#include "programs/one_line.h"

#include <array>
#include <chrono>

namespace programs {
namespace {

constexpr std::wstring_view kPattern = L"0000-00-00T00:00:00Z";

bool fits(std::wstring_view text) {
  if (text.size() != kPattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDigit = text[i] >= L'0' && text[i] <= L'9';
    if (kPattern[i] == L'0' ? !isDigit : text[i] != kPattern[i]) return false;
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
  if (!fits(utc)) return oneLine(utc);
  const auto part = [&](std::size_t at, std::size_t length = 2) { return number(utc.substr(at, length)); };
  const year_month_day date = year(part(0, 4)) / part(5) / part(8);
  // Before 1970 not every platform knows the local time.
  if (!date.ok() || part(0, 4) < 1971 || part(11) > 23 || part(14) > 59 || part(17) > 59) return oneLine(utc);
  return corvane::localTimeText(sys_days(date) + hours(part(11)) + minutes(part(14)) + seconds(part(17)));
}

}  // namespace programs
