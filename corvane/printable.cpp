#include "corvane/printable.h"

#include "corvane/text.h"

#include <algorithm>
#include <array>

namespace corvane {
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

constexpr wchar_t kReplacement = 0xFFFD;

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
      *end++ = kReplacement;
    } else if (isPrintable(point)) {
      *end++ = first;
      if (second != L'\0') *end++ = second;
    } else {
      *end++ = isBreak(point) ? L' ' : L'?';
    }
  }
  *end = L'\0';
}

}  // namespace corvane
