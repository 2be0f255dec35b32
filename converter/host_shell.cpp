#include "converter/host_shell.h"

#include "converter/conversion_error.h"
#include "converter/words.h"
#include "util/win_handle.h"

#include <windows.h>

namespace mg::converter {
namespace {

template <typename Function>
Function exportOf(const wchar_t* module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(module), name)));
}

}  // namespace

bool runsUnderWine() {
  return exportOf<void*>(L"ntdll.dll", "wine_get_version") != nullptr;
}

std::string hostPath(const std::wstring& path) {
  const auto translate = exportOf<char*(CDECL*)(const wchar_t*)>(L"kernel32.dll", "wine_get_unix_file_name");
  char* bytes = translate != nullptr ? translate(path.c_str()) : nullptr;
  if (bytes == nullptr) {
    throw ConversionError(ExitCode::kFileSystem, L"Wine knows no host path for \"" + path + L"\".");
  }
  std::string result = bytes;
  HeapFree(GetProcessHeap(), 0, bytes);
  return result;
}

void startShell(const std::string& script) {
  std::wstring line = shellCommandLine(script);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(L"\\\\?\\unix\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    throw ConversionError(ExitCode::kGhostscriptMissing,
                          L"The host's /bin/sh cannot be started: " + systemErrorText(GetLastError()) + L".");
  }
  const ObjectHandle closesProcess(process.hProcess);
  const ObjectHandle closesThread(process.hThread);
}

}  // namespace mg::converter
