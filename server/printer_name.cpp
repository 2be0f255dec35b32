#include "server/printer_name.h"

#include "corvane/base/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <limits>
#include <set>

#ifdef _WIN32
#include <windows.h>
#else
#include <locale.h>
#include <wctype.h>
#endif

namespace aps {
namespace {

bool isControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

bool isForbiddenToSpoolers(wchar_t c) {
  return c == L'\\' || c == L',' || c == L'!';
}

int numberOf(protocol::DataFormat format) {
  return static_cast<int>(format);
}

// "1 (raw), 2 (PostScript) and 3 (PDF)".
std::wstring knownFormats() {
  std::wstring list;
  for (const protocol::DataFormatNames& names : protocol::kDataFormats) {
    if (!list.empty()) list += &names == &protocol::kDataFormats.back() ? L" and " : L", ";
    list += fmt::format(L"{} ({})", numberOf(names.format), names.name);
  }
  return list;
}

std::wstring nameRefusal(const std::wstring& name) {
  if (name.empty()) return L"a printer has no name";
  const std::size_t length = corvane::toUtf16(name).size();
  if (length > kMaxPrinterName) {
    return fmt::format(L"the printer name \"{}...\" has {} characters, the limit is {}", name.substr(0, 40), length,
                       kMaxPrinterName);
  }
  if (std::any_of(name.begin(), name.end(), isControl)) {
    return fmt::format(L"the printer name \"{}\" contains a control character", name);
  }
  if (name.front() == L' ' || name.back() == L' ') {
    return fmt::format(L"the printer name \"{}\" begins or ends with a space", name);
  }
  return L"";
}

// What a client says of its printers is kept here and shown to others, so it may not be of any length.
std::wstring textRefusal(const Printer& printer) {
  for (const auto& text : printer.texts) {
    const std::size_t length = text ? corvane::toUtf16(*text).size() : 0;
    if (length > kMaxPrinterText) {
      return fmt::format(L"the printer \"{}\" has a description of {} characters, the limit is {}; shorten it",
                         printer.name(), length, kMaxPrinterText);
    }
  }
  return L"";
}

}  // namespace

std::wstring localPrinterName(const std::wstring& clientName, int session) {
  const std::wstring end = fmt::format(L" (session {})", session);
  std::wstring name = clientName;
  std::replace_if(name.begin(), name.end(), isForbiddenToSpoolers, L'-');
  while (corvane::toUtf16(name).size() + end.size() > kMaxLocalName)
    name.pop_back();
  return name + end;
}

// Each letter becomes a capital one, letter by letter and without the rules of any language, as the spooler of Windows
// compares names.
#ifdef _WIN32

std::wstring foldedName(const std::wstring& name) {
  const auto length = static_cast<int>(name.size());
  std::wstring upper(name.size(), L'\0');
  const int made = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, name.data(), length, upper.data(), length,
                                 nullptr, nullptr, 0);
  return made == length ? upper : name;
}

#else

std::wstring foldedName(const std::wstring& name) {
  // Part of the C library, whatever locales are installed; without it only the letters A to Z have another case.
  static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  std::wstring upper = name;
  for (wchar_t& c : upper) {
    const auto letter = static_cast<wint_t>(c);
    if (letter < 0x80) {  // most of them, and each request looks a name up
      if (c >= L'a' && c <= L'z') c -= L'a' - L'A';
      continue;
    }
    c = static_cast<wchar_t>(locale != nullptr ? ::towupper_l(letter, locale) : ::towupper(letter));
  }
  return upper;
}

#endif

std::wstring printersRefusal(const std::vector<Printer>& printers) {
  std::set<std::wstring> seen;
  for (const Printer& printer : printers) {
    const std::wstring& name = printer.name();
    if (std::wstring refusal = nameRefusal(name); !refusal.empty()) return refusal;
    if (std::wstring refusal = textRefusal(printer); !refusal.empty()) return refusal;
    // Names that differ on the client may be one here.
    if (!seen.insert(foldedName(localPrinterName(name, std::numeric_limits<int>::max()))).second) {
      return fmt::format(L"the printer \"{}\" is listed twice; give each printer its own name", name);
    }
    if (protocol::namesOf(printer.format) == nullptr) {
      return fmt::format(L"the printer \"{}\" has the format value {}; {} exist", name, numberOf(printer.format),
                         knownFormats());
    }
  }
  return L"";
}

}  // namespace aps
