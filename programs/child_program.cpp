#include "programs/child_program.h"

namespace programs {

std::string lastLine(const std::string& text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t last = text.find_last_not_of(kBlanks);
  if (last == std::string::npos) return "";
  const std::size_t lineEnd = text.find_last_of("\r\n", last);
  const std::size_t first = text.find_first_not_of(kBlanks, lineEnd == std::string::npos ? 0 : lineEnd + 1);
  return text.substr(first, last - first + 1);
}

}  // namespace programs
