#include "converter/conversion_error.h"
#include "converter/runner.h"
#include "converter/shell_word.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace mg::converter {
namespace {

// Exit codes of the shell and of `timeout`: the program was not found, not executable, ran out of time.
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;
constexpr int kTimedOut = 124;
constexpr int kSignalBase = 128;
constexpr int kSigKill = 9;
constexpr int kSigXfsz = 25;

// After the limit the host kills the program; this much later it is plain that no status will come.
constexpr ULONGLONG kGraceMilliseconds = 10000;

struct ChangeHandleTraits {
  using Type = HANDLE;
  static Type invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Type handle) noexcept {
    const LastErrorKeeper keeper;
    FindCloseChangeNotification(handle);
  }
};
using ChangeHandle = UniqueHandle<ChangeHandleTraits>;

template <typename Function>
Function exportOf(const wchar_t* module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(module), name)));
}

std::string hostPath(const std::wstring& path) {
  const auto translate = exportOf<char*(CDECL*)(const wchar_t*)>(L"kernel32.dll", "wine_get_unix_file_name");
  char* bytes = translate != nullptr ? translate(path.c_str()) : nullptr;
  if (bytes == nullptr) {
    throw ConversionError(ExitCode::kFileSystem, L"Wine knows no host path for \"" + path + L"\".");
  }
  const std::string result = bytes;
  HeapFree(GetProcessHeap(), 0, bytes);
  return result;
}

std::string utf8(const std::wstring& text) {
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr, nullptr);
  return bytes;
}

std::string script(const RunRequest& request, const PrivateFolder& folder, const Limits& limits) {
  const std::string temporary = shellWord(hostPath(folder.temporary()));
  std::string script =
      "exec 2>/dev/null; cd " + shellWord(hostPath(folder.path())) + " && { (ulimit -v " +
      std::to_string(limits.memoryMegabytes * 1024ull) + " && ulimit -f " +
      std::to_string(limits.outputMegabytes * 2048ull) + " && exec timeout -k 2 " + std::to_string(limits.timeSeconds) +
      " env -i PATH=/usr/local/bin:/usr/bin:/bin LC_ALL=C.UTF-8 HOME=" + temporary + " TMPDIR=" + temporary +
      " TEMP=" + temporary + " TMP=" + temporary + " " + shellWord(utf8(request.program));
  for (const std::wstring& argument : request.beforeInput)
    script += " " + shellWord(utf8(argument));
  script += " " + shellWord(hostPath(request.input));
  for (const std::wstring& argument : request.afterInput)
    script += " " + shellWord(utf8(argument));
  // The status appears under its name only when it is complete.
  return script + ") </dev/null >said.txt 2>&1; echo $? >status.new; mv status.new status; }";
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

bool readStatus(const std::wstring& path, int& status) {
  std::ifstream file{std::filesystem::path(path)};
  return static_cast<bool>(file >> status);
}

// Waits for the status file; false when it did not come in time.
bool waitForStatus(const ChangeHandle& change, const std::wstring& path, ULONGLONG milliseconds, int& status) {
  const ULONGLONG deadline = GetTickCount64() + milliseconds;
  while (!readStatus(path, status)) {
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) return false;
    // File systems that announce no changes are looked at four times a second.
    const DWORD slice = static_cast<DWORD>(deadline - now < 250 ? deadline - now : 250);
    if (!change) {
      Sleep(slice);
    } else if (WaitForSingleObject(change.get(), slice) == WAIT_OBJECT_0) {
      FindNextChangeNotification(change.get());
    }
  }
  return true;
}

RunResult fromStatus(int status) {
  if (status == kNotFound || status == kCannotExecute) return {RunEnd::kNotStarted, status};
  if (status == kTimedOut || status == kSignalBase + kSigKill) return {RunEnd::kTimeLimit, 0};
  if (status == kSignalBase + kSigXfsz) return {RunEnd::kOutputLimit, 0};
  if (status > kSignalBase && status < kSignalBase + 65) return {RunEnd::kKilled, status - kSignalBase};
  return {RunEnd::kExited, status};
}

}  // namespace

bool runsUnderWine() {
  return exportOf<void*>(L"ntdll.dll", "wine_get_version") != nullptr;
}

RunResult runOnHost(const RunRequest& request, const PrivateFolder& folder, const Limits& limits) {
  const std::string commands = script(request, folder, limits);
  const ChangeHandle change(FindFirstChangeNotificationW(folder.path().c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME));
  startShell(commands);
  int status = 0;
  const bool ended =
      waitForStatus(change, folder.path() + L"\\status", limits.timeSeconds * 1000ull + kGraceMilliseconds, status);
  return ended ? fromStatus(status) : RunResult{RunEnd::kTimeLimit, 0};
}

}  // namespace mg::converter
