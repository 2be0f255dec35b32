#include "corvane/base/format.h"

#include <cstdio>
#include <cwchar>

namespace corvane {
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

}  // namespace corvane
