#include "programs/name_pattern.h"

#include "corvane/base/text.h"

namespace programs {

bool fitsPattern(std::string_view name, std::string_view pattern) {
  std::size_t at = 0, in = 0;
  std::size_t star = std::string_view::npos, resume = 0;  // the last "*", and where the text behind it begins
  while (at < name.size()) {
    std::size_t next = at;
    corvane::nextUtf8(name, next);
    if (in < pattern.size() && pattern[in] == '*') {
      star = in++;
      resume = at;
    } else if (in < pattern.size() && pattern[in] == '?') {
      ++in;
      at = next;
    } else if (pattern.substr(in, next - at) == name.substr(at, next - at)) {
      in += next - at;
      at = next;
    } else if (star != std::string_view::npos) {
      corvane::nextUtf8(name, resume);
      at = resume;
      in = star + 1;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in) == std::string_view::npos;
}

}  // namespace programs
