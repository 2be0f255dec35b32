#include "converter/program_deadline.h"

#include <windows.h>

#include <filesystem>
#include <gtest/gtest.h>

namespace mg::converter {
namespace {

TEST(ProgramDeadline, AProgramThatHangsIsEndedWithItsCode) {
  wchar_t self[MAX_PATH];
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  std::wstring line = std::filesystem::path(self).parent_path().wstring() + L"\\converter_child.exe deadline";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  ASSERT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
  EXPECT_EQ(WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  EXPECT_EQ(code, 6u);
  CloseHandle(process.hProcess);
  CloseHandle(process.hThread);
}

TEST(ProgramDeadline, GoesQuietlyWhenTheWorkIsDoneBefore) {
  bool said = false;
  {
    const ProgramDeadline deadline(3600000, 6, [&] { said = true; });
  }
  EXPECT_FALSE(said);
}

}  // namespace
}  // namespace mg::converter
