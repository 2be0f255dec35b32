#include "converter/limits.h"

#include "converter/conversion_error.h"
#include "util/win_handle.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace mg::converter {
namespace {

struct NumberRule {
  const wchar_t* name;
  DWORD Limits::*field;
  DWORD least;
  DWORD most;
};

// Ghostscript maps well over 64 megabytes before it reads its first line, so less could never work.
constexpr NumberRule kRules[] = {
    {L"TimeLimitSeconds", &Limits::timeSeconds, 1, 86400},
    {L"MemoryLimitMegabytes", &Limits::memoryMegabytes, 128, 1048576},
    {L"OutputLimitMegabytes", &Limits::outputMegabytes, 1, 1048576},
};

[[noreturn]] void throwOdd(const wchar_t* path, const wchar_t* name, const std::wstring& must) {
  throw ConversionError(
      ExitCode::kConfiguration,
      fmt::format(L"The registry value \"{}\" in \"{}\" must be {}. Correct it or delete it.", name, path, must));
}

void readNumber(HKEY key, const wchar_t* path, const NumberRule& rule, Limits& limits) {
  DWORD type = 0;
  DWORD value = 0;
  DWORD size = sizeof value;
  const LSTATUS status = RegQueryValueExW(key, rule.name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
  if (status == ERROR_FILE_NOT_FOUND) return;
  if (status != ERROR_SUCCESS || type != REG_DWORD || value < rule.least || value > rule.most) {
    throwOdd(
        path, rule.name,
        fmt::format(L"a DWORD from {} to {}; without it the limit is {}", rule.least, rule.most, Limits().*rule.field));
  }
  limits.*rule.field = value;
}

void readGhostscript(HKEY key, const wchar_t* path, Limits& limits) {
  wchar_t text[MAX_PATH] = {};
  DWORD size = sizeof text;
  const LSTATUS status = RegGetValueW(key, nullptr, L"GhostscriptPath", RRF_RT_REG_SZ, nullptr, text, &size);
  if (status == ERROR_FILE_NOT_FOUND) return;
  if (status != ERROR_SUCCESS || text[0] == L'\0') {
    throwOdd(path, L"GhostscriptPath", L"a string with the full path of the Ghostscript program");
  }
  limits.ghostscript = text;
}

}  // namespace

Limits readLimits(HKEY root, const wchar_t* path) {
  Limits limits;
  RegistryKey key;
  const LSTATUS status = RegOpenKeyExW(root, path, 0, KEY_READ, key.receive());
  if (status == ERROR_FILE_NOT_FOUND) return limits;
  if (status != ERROR_SUCCESS) {
    throw ConversionError(ExitCode::kConfiguration, fmt::format(L"The registry key \"{}\" cannot be read: {}", path,
                                                                systemErrorText(static_cast<DWORD>(status))));
  }
  for (const NumberRule& rule : kRules)
    readNumber(key.get(), path, rule, limits);
  readGhostscript(key.get(), path, limits);
  return limits;
}

}  // namespace mg::converter
