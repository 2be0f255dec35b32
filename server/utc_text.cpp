#include "server/utc_text.h"

#include <cwchar>

namespace aps {

std::wstring utcText(std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss<seconds> clock(floor<seconds>(time - day));
  wchar_t text[40];
  std::swprintf(text, std::size(text), L"%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

}  // namespace aps
