// A child that does what windows_runner_test.cpp asks for in its first argument.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

int wmain(int count, wchar_t** arguments) {
  const std::wstring task = count > 1 ? arguments[1] : L"";
  if (task == L"exit") return static_cast<int>(std::wcstol(arguments[2], nullptr, 10));
  if (task == L"environment") {
    for (const wchar_t* name : {L"TEMP", L"TMP", L"TMPDIR", L"GS_OPTIONS"}) {
      wchar_t value[MAX_PATH] = L"(none)";
      GetEnvironmentVariableW(name, value, MAX_PATH);
      std::wprintf(L"%ls\n", value);
    }
    return 0;
  }
  if (task == L"crash") TerminateProcess(GetCurrentProcess(), 0xC0000005u);
  if (task == L"wait") Sleep(INFINITE);
  if (task == L"write") {
    const std::string block(1 << 20, 'x');
    const HANDLE file = CreateFileW(arguments[2], GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    // Fewer than would hurt if nobody stopped it.
    for (int i = 0; i < 64; ++i)
      WriteFile(file, block.data(), static_cast<DWORD>(block.size()), &written, nullptr);
    CloseHandle(file);
    Sleep(INFINITE);
  }
  return 99;
}
