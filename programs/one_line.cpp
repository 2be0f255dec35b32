#include "programs/one_line.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <algorithm>

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
  return "\"" + oneLine(text) + "\"";
}

std::string describe(const CS_Exception& failure) {
  const std::wstring_view detail = failure.detail();
  if (failure.number() == 0) return oneLine(detail);
  std::string text = oneLine(corvane::messageText(failure.number()));
  if (!detail.empty()) text += " " + oneLine(detail);
  return text;
}

}  // namespace programs
