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
Function Export(const wchar_t* module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(module), name)));
}

std::string HostPath(const std::wstring& path) {
  const auto translate = Export<char*(CDECL*)(const wchar_t*)>(L"kernel32.dll", "wine_get_unix_file_name");
  char* bytes = translate != nullptr ? translate(path.c_str()) : nullptr;
  if (bytes == nullptr) {
    throw ConversionError(ExitCode::kFileSystem, L"Wine knows no host path for \"" + path + L"\".");
  }
  const std::string result = bytes;
  HeapFree(GetProcessHeap(), 0, bytes);
  return result;
}

std::string Utf8(const std::wstring& text) {
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr, nullptr);
  return bytes;
}

std::string Script(const RunRequest& request, const PrivateFolder& folder, const Limits& limits) {
  const std::string temporary = ShellWord(HostPath(folder.temporary()));
  std::string script = "exec 2>/dev/null; cd " + ShellWord(HostPath(folder.path())) + " && { (ulimit -v " +
                       std::to_string(limits.memory_megabytes * 1024ull) + " && ulimit -f " +
                       std::to_string(limits.output_megabytes * 2048ull) + " && exec timeout -k 2 " +
                       std::to_string(limits.time_seconds) +
                       " env -i PATH=/usr/local/bin:/usr/bin:/bin LC_ALL=C.UTF-8 HOME=" + temporary +
                       " TMPDIR=" + temporary + " TEMP=" + temporary + " TMP=" + temporary + " " +
                       ShellWord(Utf8(request.program));
  for (const std::wstring& argument : request.before_input)
    script += " " + ShellWord(Utf8(argument));
  script += " " + ShellWord(HostPath(request.input));
  for (const std::wstring& argument : request.after_input)
    script += " " + ShellWord(Utf8(argument));
  // The status appears under its name only when it is complete.
  return script + ") </dev/null >said.txt 2>&1; echo $? >status.new; mv status.new status; }";
}

void StartShell(const std::string& script) {
  std::wstring line = ShellCommandLine(script);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(L"\\\\?\\unix\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    throw ConversionError(ExitCode::kGhostscriptMissing,
                          L"The host's /bin/sh cannot be started: " + SystemErrorText(GetLastError()) + L".");
  }
  const ObjectHandle closes_process(process.hProcess);
  const ObjectHandle closes_thread(process.hThread);
}

bool ReadStatus(const std::wstring& path, int& status) {
  std::ifstream file{std::filesystem::path(path)};
  return static_cast<bool>(file >> status);
}

// Waits for the status file; false when it did not come in time.
bool WaitForStatus(const ChangeHandle& change, const std::wstring& path, ULONGLONG milliseconds, int& status) {
  const ULONGLONG deadline = GetTickCount64() + milliseconds;
  while (!ReadStatus(path, status)) {
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

RunResult FromStatus(int status) {
  if (status == kNotFound || status == kCannotExecute) return {RunEnd::kNotStarted, status};
  if (status == kTimedOut || status == kSignalBase + kSigKill) return {RunEnd::kTimeLimit, 0};
  if (status == kSignalBase + kSigXfsz) return {RunEnd::kOutputLimit, 0};
  if (status > kSignalBase && status < kSignalBase + 65) return {RunEnd::kKilled, status - kSignalBase};
  return {RunEnd::kExited, status};
}

}  // namespace

bool RunsUnderWine() {
  return Export<void*>(L"ntdll.dll", "wine_get_version") != nullptr;
}

RunResult RunOnHost(const RunRequest& request, const PrivateFolder& folder, const Limits& limits) {
  const std::string script = Script(request, folder, limits);
  const ChangeHandle change(FindFirstChangeNotificationW(folder.path().c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME));
  StartShell(script);
  int status = 0;
  const bool ended =
      WaitForStatus(change, folder.path() + L"\\status", limits.time_seconds * 1000ull + kGraceMilliseconds, status);
  return ended ? FromStatus(status) : RunResult{RunEnd::kTimeLimit, 0};
}

}  // namespace mg::converter
