#include "converter/words.h"

namespace mg::converter {
namespace {

std::wstring quoted(const std::wstring& word) {
  if (!word.empty() && word.find_first_of(L" \t\n\v\"") == std::wstring::npos) return word;
  std::wstring line = L"\"";
  size_t backslashes = 0;
  for (const wchar_t c : word) {
    // Backslashes double only where a quote follows; in front of a quote inside the word one more escapes it.
    if (c == L'"') line.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    line += c;
  }
  line.append(backslashes, L'\\');
  return line + L"\"";
}

}  // namespace

std::wstring argumentLine(const std::vector<std::wstring>& words) {
  std::wstring line;
  for (const std::wstring& word : words) {
    if (!line.empty()) line += L' ';
    line += quoted(word);
  }
  return line;
}

}  // namespace mg::converter

namespace mg::converter {
namespace {

bool isPlain(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("/._-=,:").find(static_cast<char>(c)) != std::string_view::npos;
}

}  // namespace

std::string shellWord(std::string_view bytes) {
  bool plain = !bytes.empty();
  std::string escaped;
  for (const char each : bytes) {
    const auto c = static_cast<unsigned char>(each);
    if (isPlain(c)) {
      escaped += each;
      continue;
    }
    plain = false;
    // "\0ooo" is the form that printf's %b takes; unlike the format itself, its result is not read again for "%".
    escaped += "\\0";
    for (const int shift : {6, 3, 0})
      escaped += static_cast<char>('0' + ((c >> shift) & 7));
  }
  if (plain) return escaped;
  return "\"$(printf %b '" + escaped + "')\"";
}

std::wstring shellCommandLine(const std::string& script) {
  return argumentLine({L"sh", L"-c", std::wstring(script.begin(), script.end())});
}

}  // namespace mg::converter
