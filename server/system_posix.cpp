#include "server/system.h"

#include <algorithm>
#include <locale.h>
#include <sys/resource.h>
#include <wctype.h>

namespace aps {

std::size_t provideDescriptors(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
  if (limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  return std::min<rlim_t>(limit.rlim_cur, wanted);
}

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
