#include "converter/ghostscript.h"

#include "converter/conversion_error.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cstdlib>
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

std::wstring wide(const std::string& ascii) {
  return std::wstring(ascii.begin(), ascii.end());
}

}  // namespace

std::wstring findGhostscript(const Limits& limits) {
  if (!limits.ghostscript.empty()) return limits.ghostscript;
  if (runsUnderWine()) return L"gs";
  std::wstring installed = installedGhostscript();
  if (installed.empty()) {
    throw ConversionError(ExitCode::kGhostscriptMissing,
                          L"Ghostscript is not installed. Install it, or name gswin64c.exe in the registry value "
                          L"\"GhostscriptPath\" in \"" +
                              std::wstring(kConverterKey) + L"\".");
  }
  return installed;
}

RunRequest pdfWriteRequest(const std::wstring& program, const std::wstring& input, const std::string& marker) {
  const std::wstring tell = L"(\\n" + wide(marker) +
                            L") print currentpagedevice dup /PageCount known {/PageCount get} {pop 0} ifelse = flush";
  RunRequest request;
  request.program = program;
  // The output is named without a path: a "%" in the name of a folder would be taken as a page number format. Plain
  // object and reference tables are what countPdfPages reads.
  request.beforeInput = {
      L"-q", L"-dSAFER", L"-dBATCH", L"-dNOPAUSE", L"-sDEVICE=pdfwrite", L"-dWriteObjStms=false",
      L"-dWriteXRefStm=false", L"-sOutputFile=out.pdf",
      // The document may neither send its pages to another file nor leave without the last line.
      L"-c",
      L"<</.LockSafetyParams true>> setpagedevice userdict /quit {" + tell + L" systemdict /quit get exec} bind put",
      L"-f"};
  request.input = input;
  request.afterInput = {L"-c", tell};
  return request;
}

int printedPages(const std::string& said, const std::string& marker) {
  const size_t at = said.rfind("\n" + marker);
  if (at == std::string::npos) return -1;
  const char* const number = said.c_str() + at + 1 + marker.size();
  char* end = nullptr;
  const long pages = std::strtol(number, &end, 10);
  return end == number ? -1 : static_cast<int>(pages);
}

std::string errorLine(const std::string& said) {
  size_t begin = said.find("Error: ");
  if (begin == std::string::npos) {
    const size_t last = said.find_last_not_of("\r\n ");
    if (last == std::string::npos) return "";
    const size_t line = said.find_last_of('\n', last);
    begin = line == std::string::npos ? 0 : line + 1;
  }
  std::string text = said.substr(begin, said.find_first_of("\r\n", begin) - begin);
  // A job may print anything; only what a log can show is repeated, and not much of it.
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text.substr(0, 200);
}

}  // namespace mg::converter
