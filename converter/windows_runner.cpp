#include "converter/conversion_error.h"
#include "converter/ghostscript.h"
#include "converter/host_shell.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cwchar>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <vector>

namespace mg::converter {
namespace {

// Nothing signals the growth of a file, so its size is checked this often.
constexpr DWORD kSliceMilliseconds = 100;

[[noreturn]] void throwSystem(const std::wstring& what) {
  throw ConversionError(ExitCode::kFileSystem, fmt::format(L"{}: {}.", what, systemErrorText(GetLastError())));
}

ObjectHandle limitedJob(const Limits& limits) {
  ObjectHandle job(CreateJobObjectW(nullptr, nullptr));
  if (!job) throwSystem(L"A job object cannot be made");
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION information = {};
  information.BasicLimitInformation.LimitFlags =
      JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_JOB_MEMORY | JOB_OBJECT_LIMIT_DIE_ON_UNHANDLED_EXCEPTION;
  information.JobMemoryLimit = static_cast<SIZE_T>(limits.memoryMegabytes) << 20;
  if (!SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &information, sizeof information)) {
    throwSystem(L"The limits of the job object cannot be set");
  }
  return job;
}

FileHandle openInheritable(const wchar_t* path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  FileHandle file(CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, disposition,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) throwSystem(fmt::format(L"\"{}\" cannot be opened for Ghostscript", path));
  return file;
}

// Our own environment with the private temporary folder, without the variables that Ghostscript reads options from.
std::wstring environmentWith(const std::wstring& temporary) {
  std::wstring block;
  wchar_t* const all = GetEnvironmentStringsW();
  for (const wchar_t* entry = all; *entry != L'\0'; entry += std::wcslen(entry) + 1) {
    bool replaced = false;
    for (const wchar_t* name : {L"TEMP=", L"TMP=", L"TMPDIR=", L"GS_"}) {
      replaced = replaced || _wcsnicmp(entry, name, std::wcslen(name)) == 0;
    }
    if (!replaced) block.append(entry).push_back(L'\0');
  }
  FreeEnvironmentStringsW(all);
  for (const wchar_t* name : {L"TEMP=", L"TMP=", L"TMPDIR="})
    block.append(name).append(temporary).push_back(L'\0');
  block.push_back(L'\0');
  return block;
}

RunResult waitWithinLimits(HANDLE process, const PrivateFolder& folder, const Limits& limits) {
  const ULONGLONG deadline = GetTickCount64() + limits.timeSeconds * 1000ull;
  const ULONGLONG most = static_cast<ULONGLONG>(limits.outputMegabytes) << 20;
  while (WaitForSingleObject(process, kSliceMilliseconds) == WAIT_TIMEOUT) {
    if (folder.holdsMoreThan(most)) return {RunEnd::kOutputLimit, 0};
    if (GetTickCount64() >= deadline) return {RunEnd::kTimeLimit, 0};
  }
  if (folder.holdsMoreThan(most)) return {RunEnd::kOutputLimit, 0};
  DWORD code = 0;
  GetExitCodeProcess(process, &code);
  // NTSTATUS errors as exit codes are crashes.
  return {code >= 0xC0000000u ? RunEnd::kKilled : RunEnd::kExited, static_cast<int>(code)};
}

}  // namespace

RunResult runOnWindows(const RunRequest& request, PrivateFolder& folder, const Limits& limits) {
  const ObjectHandle job = limitedJob(limits);
  const FileHandle said = openInheritable(folder.said().c_str(), GENERIC_WRITE, CREATE_ALWAYS);
  const FileHandle input = openInheritable(request.input.c_str(), GENERIC_READ, OPEN_EXISTING);
  std::wstring environment = environmentWith(folder.temporary());

  std::vector<std::wstring> words = {request.program};
  words.insert(words.end(), request.arguments.begin(), request.arguments.end());
  std::wstring line = argumentLine(words);

  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  startup.hStdInput = input.get();
  startup.hStdOutput = said.get();
  startup.hStdError = said.get();
  PROCESS_INFORMATION started = {};
  // Suspended until it is in the job: not one instruction of it runs without the limits.
  if (!CreateProcessW(request.program.c_str(), line.data(), nullptr, nullptr, TRUE,
                      CREATE_SUSPENDED | CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT, environment.data(),
                      folder.path().c_str(), &startup, &started)) {
    return {RunEnd::kNotStarted, static_cast<int>(GetLastError())};
  }
  const ObjectHandle process(started.hProcess);
  const ObjectHandle thread(started.hThread);
  if (!AssignProcessToJobObject(job.get(), process.get())) {
    const DWORD error = GetLastError();
    TerminateProcess(process.get(), 1);
    SetLastError(error);
    throwSystem(L"Ghostscript cannot be put under limits");
  }
  ResumeThread(thread.get());
  const RunResult result = waitWithinLimits(process.get(), folder, limits);
  if (result.end == RunEnd::kTimeLimit || result.end == RunEnd::kOutputLimit) {
    TerminateJobObject(job.get(), 1);
    WaitForSingleObject(process.get(), INFINITE);  // its files can be removed only after its end
  }
  return result;
}

}  // namespace mg::converter
