#include "server/upper_case.h"

#include <locale.h>
#include <wctype.h>

namespace aps {
namespace {

// Part of the system's library, whatever locales are installed; without it only the letters A to Z have another case.
locale_t anyLanguage() {
  static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

}  // namespace

std::wstring upperCase(std::wstring text) {
  const locale_t locale = anyLanguage();
  for (wchar_t& c : text) {
    const auto letter = static_cast<wint_t>(c);
    c = static_cast<wchar_t>(locale != nullptr ? ::towupper_l(letter, locale) : ::towupper(letter));
  }
  return text;
}

}  // namespace aps
