// A child that does what the tests of this folder ask for in its first argument.
#include "converter/ghostscript.h"
#include "converter/private_folder.h"
#include "converter/program_deadline.h"

#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

void printEnvironment() {
  for (const wchar_t* name : {L"TEMP", L"TMP", L"TMPDIR", L"GS_OPTIONS"}) {
    wchar_t value[MAX_PATH] = L"(none)";
    GetEnvironmentVariableW(name, value, MAX_PATH);
    std::wprintf(L"%ls\n", value);
  }
}

void writeUntilStopped(const wchar_t* path) {
  const std::string block(1 << 20, 'x');
  HANDLE file = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  // Fewer than would hurt if nobody stopped it.
  for (int i = 0; i < 64; ++i)
    WriteFile(file, block.data(), static_cast<DWORD>(block.size()), &written, nullptr);
  CloseHandle(file);
  Sleep(INFINITE);
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  const std::wstring task = count > 1 ? arguments[1] : L"";
  if (task == L"exit") return static_cast<int>(std::wcstol(arguments[2], nullptr, 10));
  if (task == L"environment") {
    printEnvironment();
    return 0;
  }
  if (task == L"crash") TerminateProcess(GetCurrentProcess(), 0xC0000005u);
  if (task == L"wait") Sleep(INFINITE);
  if (task == L"write") writeUntilStopped(arguments[2]);
  // Holds a mutex until it ends.
  if (task == L"hold") {
    CreateMutexW(nullptr, TRUE, arguments[2]);
    SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, arguments[3]));
    Sleep(INFINITE);
  }
  // Runs itself with the other arguments under the runner.
  if (task == L"run") {
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    mg::converter::PrivateFolder folder(arguments[2]);
    runOnWindows({self, std::vector<std::wstring>(arguments + 3, arguments + count), self}, folder, {});
  }
  if (task == L"deadline") {
    const mg::converter::ProgramDeadline deadline(50, 6, [] { std::printf("too late"), std::fflush(stdout); });
    Sleep(INFINITE);
  }
  // What stands on its standard input.
  if (task == L"input") {
    char text[100];
    std::printf("<%s>", std::fgets(text, sizeof text, stdin));
    return 0;
  }
  return 99;
}
