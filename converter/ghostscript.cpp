#include "converter/ghostscript.h"

#include "converter/conversion_error.h"
#include "converter/host_shell.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cstdlib>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <vector>

namespace mg::converter {
namespace {

// "10.3" sorts above "9.56", which text comparison would not do.
bool isNewer(const std::wstring& a, const std::wstring& b) {
  return std::wcstod(a.c_str(), nullptr) > std::wcstod(b.c_str(), nullptr);
}

std::wstring installedGhostscript() {
  constexpr wchar_t kKey[] = L"SOFTWARE\\GPL Ghostscript";
  RegistryKey key;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ | KEY_WOW64_64KEY, key.receive()) != ERROR_SUCCESS)
    return L"";
  std::wstring newest;
  std::wstring library;
  wchar_t version[64];
  for (DWORD i = 0, size = 64; RegEnumKeyExW(key.get(), i, version, &size, nullptr, nullptr, nullptr, nullptr) == 0;
       ++i, size = 64) {
    wchar_t path[MAX_PATH];
    DWORD bytes = sizeof path;
    if (RegGetValueW(key.get(), version, L"GS_DLL", RRF_RT_REG_SZ, nullptr, path, &bytes) == ERROR_SUCCESS &&
        (library.empty() || isNewer(version, newest))) {
      newest = version;
      library = path;
    }
  }
  const size_t folder = library.find_last_of(L'\\');
  return folder == std::wstring::npos ? L"" : library.substr(0, folder + 1) + L"gswin64c.exe";
}

}  // namespace

std::wstring findGhostscript(const Limits& limits) {
  if (!limits.ghostscript.empty()) return limits.ghostscript;
  if (runsUnderWine()) return L"gs";
  std::wstring installed = installedGhostscript();
  if (installed.empty()) {
    throw ConversionError(ExitCode::kGhostscriptMissing,
                          fmt::format(L"Ghostscript is not installed. Install it, or name gswin64c.exe in the registry "
                                      L"value \"GhostscriptPath\" in \"{}\".",
                                      kConverterKey));
  }
  return installed;
}

RunRequest pdfWriteRequest(const std::wstring& program, const std::wstring& script, const std::wstring& input) {
  RunRequest request;
  request.program = program;
  // The output is named without a path: a "%" in the name of a folder would be read as a page number format. Plain
  // object and reference tables are what PdfFile reads. "-_" runs the input, by way of the script, in blocks.
  request.arguments = {L"-q",
                       L"-dSAFER",
                       L"-dBATCH",
                       L"-dNOPAUSE",
                       L"-sDEVICE=pdfwrite",
                       L"-dWriteObjStms=false",
                       L"-dWriteXRefStm=false",
                       L"-sOutputFile=out.pdf",
                       L"-f",
                       script,
                       L"-_"};
  request.input = input;
  return request;
}

}  // namespace mg::converter
