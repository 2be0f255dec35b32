#include "converter/host_shell.h"

#include "converter/conversion_error.h"
#include "util/win_handle.h"

#include <windows.h>

#include <fmt/format.h>
#include <fmt/xchar.h>

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

template <typename Function>
Function exportOf(const wchar_t* module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(module), name)));
}

bool isPlain(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("/._-=,:").find(static_cast<char>(c)) != std::string_view::npos;
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

bool runsUnderWine() {
  return exportOf<void*>(L"ntdll.dll", "wine_get_version") != nullptr;
}

std::string hostPath(const std::wstring& path) {
  const auto translate = exportOf<char*(CDECL*)(const wchar_t*)>(L"kernel32.dll", "wine_get_unix_file_name");
  char* bytes = translate != nullptr ? translate(path.c_str()) : nullptr;
  if (bytes == nullptr) {
    throw ConversionError(ExitCode::kFileSystem, fmt::format(L"Wine knows no host path for \"{}\".", path));
  }
  std::string result = bytes;
  HeapFree(GetProcessHeap(), 0, bytes);
  return result;
}

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
    escaped += fmt::format("\\0{:03o}", c);
  }
  if (plain) return escaped;
  return fmt::format("\"$(printf %b '{}')\"", escaped);
}

std::wstring shellCommandLine(const std::string& script) {
  return argumentLine({L"sh", L"-c", std::wstring(script.begin(), script.end())});
}

void startShell(const std::string& script) {
  std::wstring line = shellCommandLine(script);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(L"\\\\?\\unix\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    throw ConversionError(ExitCode::kGhostscriptMissing,
                          fmt::format(L"The host's /bin/sh cannot be started: {}.", systemErrorText(GetLastError())));
  }
  const ObjectHandle closesProcess(process.hProcess);
  const ObjectHandle closesThread(process.hThread);
}

}  // namespace mg::converter
