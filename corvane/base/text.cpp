#include "corvane/base/text.h"

#include "corvane/base/process.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <cwchar>
#include <iterator>

namespace corvane {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isHigh(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLow(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}
char32_t joined(char32_t high, char32_t low) {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

// The code point at the position, which moves behind it. Surrogates that are not a pair come out as they are.
char32_t nextCodePoint(std::wstring_view text, std::size_t& at) {
  const char32_t first = static_cast<char32_t>(text[at++]);
  if (isHigh(first) && at < text.size() && isLow(static_cast<char32_t>(text[at]))) {
    return joined(first, static_cast<char32_t>(text[at++]));
  }
  return first;
}

void appendWide(std::wstring& text, char32_t point) {
  if (sizeof(wchar_t) == 2 && point > 0xFFFF) {
    text.push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)));
    text.push_back(static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
  } else {
    text.push_back(static_cast<wchar_t>(point));
  }
}

}  // namespace

void appendUtf8(std::string& text, char32_t point) {
  if (point > 0x10FFFF || isHigh(point) || isLow(point)) point = kReplacement;
  if (point < 0x80) {
    text.push_back(static_cast<char>(point));
    return;
  }
  const int more = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
  constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
  text.push_back(static_cast<char>(kLead[more] | (point >> (6 * more))));
  for (int i = more - 1; i >= 0; --i)
    text.push_back(static_cast<char>(0x80 | ((point >> (6 * i)) & 0x3F)));
}

char32_t nextUtf8(std::string_view text, std::size_t& at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at++);
  if (lead < 0x80) return lead;
  const int more = lead >= 0xF0 && lead < 0xF5   ? 3
                   : lead >= 0xE0 && lead < 0xF0 ? 2
                   : lead >= 0xC2 && lead < 0xE0 ? 1
                                                 : 0;
  if (more == 0 || at + static_cast<std::size_t>(more) > text.size()) return kReplacement;
  char32_t point = lead & (0x3F >> more);
  for (int i = 0; i < more; ++i) {
    if ((byte(at + static_cast<std::size_t>(i)) & 0xC0) != 0x80) return kReplacement;
    point = (point << 6) | (byte(at + static_cast<std::size_t>(i)) & 0x3F);
  }
  constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  if (point < kSmallest[more] || point > 0x10FFFF || isHigh(point) || isLow(point)) return kReplacement;
  at += static_cast<std::size_t>(more);
  return point;
}

std::vector<std::uint16_t> toUtf16(std::wstring_view text) {
  std::vector<std::uint16_t> units;
  units.reserve(text.size());
  forEachUtf16Unit(text, [&](std::uint16_t unit) { units.push_back(unit); });
  return units;
}

std::wstring fromUtf16(const std::uint16_t* units, std::size_t count) {
  std::wstring text;
  text.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (isHigh(units[i]) && i + 1 < count && isLow(units[i + 1])) {
      appendWide(text, joined(units[i], units[i + 1]));
      ++i;
    } else {
      text.push_back(static_cast<wchar_t>(units[i]));
    }
  }
  return text;
}

std::string toUtf8(std::wstring_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();)
    appendUtf8(result, nextCodePoint(text, at));
  return result;
}

std::wstring fromUtf8(std::string_view text) {
  std::wstring result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();)
    appendWide(result, nextUtf8(text, at));
  return result;
}

namespace {

struct Range {
  char32_t first, last;
};

// In their order. Besides the control characters, Unicode's "default ignorable" ones without the variation selectors,
// which belong to the visible character before them.
constexpr std::array kHidden = {
    Range{0x0000, 0x001F},   Range{0x007F, 0x009F},   Range{0x00AD, 0x00AD},   Range{0x034F, 0x034F},
    Range{0x061C, 0x061C},   Range{0x115F, 0x1160},   Range{0x17B4, 0x17B5},   Range{0x180E, 0x180E},
    Range{0x200B, 0x200F},   Range{0x2028, 0x202E},   Range{0x2060, 0x206F},   Range{0x3164, 0x3164},
    Range{0xD800, 0xDFFF},   Range{0xFDD0, 0xFDEF},   Range{0xFEFF, 0xFEFF},   Range{0xFFA0, 0xFFA0},
    Range{0xFFF0, 0xFFFB},   Range{0xFFFE, 0xFFFF},   Range{0x1BCA0, 0x1BCA3}, Range{0x1D173, 0x1D17A},
    Range{0xE0000, 0xE00FF}, Range{0xE01F0, 0xE0FFF},
};

bool isPlain(char c) {
  return c >= 0x20 && c < 0x7F;
}

bool isHighSurrogate(wchar_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(wchar_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

bool isBreak(char32_t point) {
  return point == U'\n' || point == U'\r' || point == U'\t';
}

}  // namespace

bool isPrintable(char32_t point) {
  const auto* at = std::lower_bound(kHidden.begin(), kHidden.end(), point,
                                    [](const Range& range, char32_t value) { return range.last < value; });
  return (at == kHidden.end() || point < at->first) && point <= 0x10FFFF;
}

std::string printable(std::string_view utf8) {
  if (std::all_of(utf8.begin(), utf8.end(), isPlain)) return std::string(utf8);
  std::string result;
  result.reserve(utf8.size());
  for (std::size_t at = 0; at < utf8.size();) {
    const char32_t point = nextUtf8(utf8, at);
    if (isPrintable(point)) {
      appendUtf8(result, point);
    } else {
      result.push_back(isBreak(point) ? ' ' : '?');
    }
  }
  return result;
}

std::string printable(std::wstring_view text) {
  return printable(toUtf8(text));
}

void makePrintable(wchar_t* text) noexcept {
  wchar_t* end = text;
  while (*text != L'\0') {
    const wchar_t first = *text++;
    auto point = static_cast<char32_t>(first);
    wchar_t second = L'\0';
    if (isHighSurrogate(first) && isLowSurrogate(*text)) {
      second = *text++;
      point = 0x10000 + ((static_cast<char32_t>(first) & 0x3FF) << 10) + (static_cast<char32_t>(second) & 0x3FF);
    }
    if (second == L'\0' && (isHighSurrogate(first) || isLowSurrogate(first) || point > 0x10FFFF)) {
      *end++ = static_cast<wchar_t>(kReplacement);
    } else if (isPrintable(point)) {
      *end++ = first;
      if (second != L'\0') *end++ = second;
    } else {
      *end++ = isBreak(point) ? L' ' : L'?';
    }
  }
  *end = L'\0';
}

// Formatting

namespace {

#ifdef _WIN32

bool formatInto(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list arguments) {
  const int written = _vsnwprintf(buffer, size, format, arguments);
  return written >= 0 && static_cast<std::size_t>(written) < size;
}

#else

// Standard C takes narrow text for %s in a wide format; %ls is the wide one.
bool widenTextConversions(const wchar_t* format, wchar_t* out, std::size_t size) {
  std::size_t used = 0;
  bool inConversion = false;
  for (; *format != L'\0'; ++format) {
    if (used + 3 > size) return false;
    if (!inConversion) {
      inConversion = *format == L'%';
    } else if (std::wcschr(L"-+ #0123456789.*lhzjt", *format) == nullptr) {
      if (*format == L's' && out[used - 1] != L'l') out[used++] = L'l';
      inConversion = false;
    }
    out[used++] = *format;
  }
  out[used] = L'\0';
  return true;
}

bool formatInto(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list arguments) {
  wchar_t widened[512];
  if (!widenTextConversions(format, widened, std::size(widened))) return false;
  return std::vswprintf(buffer, size, widened, arguments) >= 0;
}

#endif

}  // namespace

bool formatWide(wchar_t* buffer, std::size_t size, const wchar_t* format, va_list arguments) noexcept {
  if (size == 0) return false;
  buffer[0] = L'\0';
  const bool fitted = formatInto(buffer, size, format, arguments);
  buffer[size - 1] = L'\0';
  return fitted;
}

std::wstring formatText(const wchar_t* format, ...) {
  std::wstring text(256, L'\0');
  for (;;) {
    va_list arguments;
    va_start(arguments, format);
    const bool fitted = formatWide(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (fitted || text.size() >= kMaxFormatted) {
      text.resize(std::wcslen(text.c_str()));
      return text;
    }
    text.assign(text.size() * 4, L'\0');
  }
}

// Local time

namespace {

struct LocalTime {
  std::tm parts;
  int offsetMinutes;
};

LocalTime localTimeOf(std::chrono::sys_seconds time) {
  using namespace std::chrono;
  const std::tm parts = localTime(system_clock::to_time_t(time));
  const sys_days day = year(parts.tm_year + 1900) / (parts.tm_mon + 1) / parts.tm_mday;
  const sys_seconds asUtc = day + hours(parts.tm_hour) + minutes(parts.tm_min) + seconds(parts.tm_sec);
  return {parts, static_cast<int>(duration_cast<minutes>(asUtc - time).count())};
}

std::size_t length(int written, std::size_t size) {
  return written > 0 && size > 0 ? std::min(static_cast<std::size_t>(written), size - 1) : 0;
}

// A fraction of the second is written when it is not negative.
std::size_t write(char* buffer, std::size_t size, std::chrono::sys_seconds time, int milliseconds) {
  const auto [parts, offset] = localTimeOf(time);
  char fraction[16] = "";
  if (milliseconds >= 0) std::snprintf(fraction, sizeof fraction, ".%03d", milliseconds);
  const int minutes = offset < 0 ? -offset : offset;
  return length(std::snprintf(buffer, size, "%04d-%02d-%02d %02d:%02d:%02d%s %c%02d%02d", parts.tm_year + 1900,
                              parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, fraction,
                              offset < 0 ? '-' : '+', minutes / 60, minutes % 60),
                size);
}

}  // namespace

std::size_t writeLocalTime(char* buffer, std::size_t size, std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  const sys_seconds whole = floor<seconds>(time);
  return write(buffer, size, whole, static_cast<int>(duration_cast<milliseconds>(time - whole).count()));
}

std::string localTimeText(std::chrono::system_clock::time_point time) {
  char text[64];
  return std::string(text, write(text, sizeof text, std::chrono::floor<std::chrono::seconds>(time), -1));
}

}  // namespace corvane
