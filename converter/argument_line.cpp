#include "converter/argument_line.h"

namespace mg::converter {
namespace {

std::wstring quoted(const std::wstring& word) {
  if (!word.empty() && word.find_first_of(L" \t\n\v\"") == std::wstring::npos) return word;
  std::wstring line = L"\"";
  size_t backslashes = 0;
  for (const wchar_t c : word) {
    // Backslashes are doubled only before a quote; a quote inside the word is escaped by one more.
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
