#include "server/system.h"

#include <windows.h>

namespace aps {

std::size_t provideDescriptors(std::size_t wanted) {
  return wanted;
}

std::wstring upperCase(std::wstring text) {
  const auto length = static_cast<int>(text.size());
  std::wstring upper(text.size(), L'\0');
  const int made = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.data(), length, upper.data(), length,
                                 nullptr, nullptr, 0);
  return made == length ? upper : text;
}

}  // namespace aps
