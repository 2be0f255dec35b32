#include "programs/command_words.h"

#include <windows.h>

#include <shellapi.h>

namespace programs {

std::wstring quotedWord(const std::wstring& word) {
  if (!word.empty() && word.find_first_of(L" \t\n\v\"") == std::wstring::npos) return word;
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : word) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    quoted.append(c == L'"' ? 2 * backslashes + 1 : backslashes, L'\\').push_back(c);
    backslashes = 0;
  }
  return quoted.append(2 * backslashes, L'\\') + L"\"";
}

std::vector<std::wstring> wordsOf(const std::wstring& commandLine) {
  std::vector<std::wstring> words;
  int count = 0;
  wchar_t** const found = commandLine.empty() ? nullptr : CommandLineToArgvW(commandLine.c_str(), &count);
  for (int i = 0; found != nullptr && i < count; ++i)
    words.emplace_back(found[i]);
  LocalFree(found);
  return words;
}

std::wstring commandLineOf(const std::vector<std::wstring>& words) {
  std::wstring line;
  for (const std::wstring& word : words)
    line += (line.empty() ? L"" : L" ") + quotedWord(word);
  return line;
}

}  // namespace programs
