#include "programs/one_line.h"

#include "corvane/text.h"

#include <algorithm>

namespace programs {

std::string oneLine(std::wstring_view text) {
  std::wstring line;
  for (const wchar_t c : text.substr(0, kLineBytes)) {
    const bool isBreak = c == L'\n' || c == L'\r' || c == L'\t';
    const bool isControl = c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
    line.push_back(isBreak ? L' ' : isControl ? L'?' : c);
  }
  std::string result = corvane::toUtf8(line);
  if (result.size() <= kLineBytes && text.size() <= kLineBytes) return result;
  std::size_t end = std::min(result.size(), kLineBytes);
  while (end > 0 && end < result.size() && (static_cast<unsigned char>(result[end]) & 0xC0) == 0x80)
    --end;
  return result.substr(0, end) + "...";
}

}  // namespace programs
