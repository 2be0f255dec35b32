#include "server/command_tail.h"

namespace aps {

std::wstring commandTail(const std::wstring& arguments) {
  const std::size_t last = arguments.size() - 1;
  if (arguments.size() < 2 || arguments.front() != L'"' || arguments.back() != L'"') return arguments;
  std::wstring tail;
  for (std::size_t at = 1; at < last; ++at) {
    const std::size_t quote = arguments.find_first_not_of(L'\\', at);
    const std::size_t backslashes = quote - at;
    if (arguments[quote] != L'"') {
      tail.append(arguments, at, backslashes + 1);
    } else if (backslashes % 2 == 0) {
      // An even number of backslashes leaves the quote its meaning: it may only be the one that ends the word.
      if (quote != last) return arguments;
      tail.append(backslashes / 2, L'\\');
    } else {
      // This quote is a part of the word, so it cannot end it.
      if (quote == last) return arguments;
      tail.append(backslashes / 2, L'\\').push_back(L'"');
    }
    at = quote;
  }
  return tail;
}

}  // namespace aps
