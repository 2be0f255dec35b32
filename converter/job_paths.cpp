#include "converter/job_paths.h"

#include "converter/conversion_error.h"

#include <windows.h>

#include <cwchar>

namespace mg::converter {

const wchar_t kUsageText[] =
    L"Usage: ps2pdf.exe \"<file.ps>\" writes <file.pdf> beside it; the name must end in \".ps\".";

JobPaths pathsForInput(const std::wstring& argument) {
  constexpr size_t kSuffix = 3;
  if (argument.size() <= kSuffix || _wcsicmp(argument.c_str() + argument.size() - kSuffix, L".ps") != 0) {
    throw ConversionError(ExitCode::kUsage, kUsageText);
  }
  const DWORD room = GetFullPathNameW(argument.c_str(), 0, nullptr, nullptr);
  std::wstring full(room, L'\0');
  full.resize(room == 0 ? 0 : GetFullPathNameW(argument.c_str(), room, full.data(), nullptr));
  if (full.size() <= kSuffix) {
    throw ConversionError(ExitCode::kInput, L"\"" + argument + L"\" is not a usable file name. Give a shorter path.");
  }
  return {full, full.substr(0, full.size() - kSuffix) + L".pdf"};
}

}  // namespace mg::converter
