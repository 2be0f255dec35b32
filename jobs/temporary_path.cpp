#include "jobs/temporary_path.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>

namespace mg {
namespace {

// Best-fit characters, such as a plain "A" for a wide one, come back as something else.
bool isHeld(const wchar_t* text) {
  const UTL_String narrow = UTL_String::fromNarrow(UTL_String(text).narrow());
  return std::wcscmp(narrow.wide(), text) == 0;
}

bool canStand(wchar_t c) {
  const wchar_t text[] = {c, L'\0'};
  return c >= L' ' && isHeld(text);
}

// FNV-1a: names that differ have the same digits once in 2^64 pairs.
std::wstring digitsOf(const std::wstring& name) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const wchar_t c : name) {
    for (const unsigned byte : {static_cast<unsigned>(c) & 0xFF, static_cast<unsigned>(c) >> 8})
      hash = (hash ^ byte) * 0x100000001b3;
  }
  wchar_t digits[17];
  std::swprintf(digits, std::size(digits), L"%016llx", static_cast<unsigned long long>(hash));
  return digits;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : m_length(GetTempPathW(MAX_PATH, m_text.data())) {}

std::wstring fileNameOf(const UTL_String& jobName) {
  const std::wstring name = jobName.wide();
  // Every ANSI code page holds these.
  if (std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= L' ' && c <= L'~'; })) return name;
  if (std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= L' '; }) && isHeld(name.c_str())) return name;
  std::wstring kept = name.substr(0, kMostKept);
  for (wchar_t& c : kept) {
    if (!canStand(c)) c = L'_';
  }
  return kept + L"~" + digitsOf(name);
}

void appendTemporaryPath(UTL_String& path, const TemporaryDirectory& directory, const UTL_String& jobName, DWORD ticks,
                         const wchar_t* extension) {
  path.append(directory.text());
  path.append(fileNameOf(jobName).c_str());
  path.append(L"-");
  path.append(std::to_wstring(static_cast<int>(ticks)).c_str());
  path.append(extension);
}

}  // namespace mg
