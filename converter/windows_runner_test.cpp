#include "converter/private_folder.h"
#include "converter/runner.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace mg::converter {
namespace {

std::wstring BesideThisProgram(const wchar_t* name) {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path().wstring() + L"\\" + name;
}

class WindowsRunner : public testing::Test {
 protected:
  RunResult Run(const std::vector<std::wstring>& before, const std::wstring& input) {
    return RunOnWindows({BesideThisProgram(L"converter_child.exe"), before, input, {}}, folder_, limits_);
  }
  std::string Said() const {
    std::ifstream file{std::filesystem::path(folder_.said())};
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }

  PrivateFolder folder_{BesideThisProgram(L"x")};
  Limits limits_;
};

TEST_F(WindowsRunner, ExitCodeIsHandedBack) {
  const RunResult result = Run({L"exit"}, L"7");
  EXPECT_EQ(result.end, RunEnd::kExited);
  EXPECT_EQ(result.code, 7);
}

TEST_F(WindowsRunner, MissingProgramIsNotStarted) {
  const RunResult result = RunOnWindows({L"C:\\none\\gswin64c.exe", {}, L"x", {}}, folder_, limits_);
  EXPECT_EQ(result.end, RunEnd::kNotStarted);
  EXPECT_EQ(result.code, ERROR_PATH_NOT_FOUND);
}

TEST_F(WindowsRunner, TemporaryFolderIsThePrivateOneAndOptionsFromOutsideAreNotHandedOn) {
  SetEnvironmentVariableW(L"GS_OPTIONS", L"-dNOSAFER");
  Run({}, L"environment");
  SetEnvironmentVariableW(L"GS_OPTIONS", nullptr);
  const std::wstring wide = folder_.temporary();
  const std::string path(wide.begin(), wide.end());
  EXPECT_EQ(Said(), path + "\n" + path + "\n" + path + "\n(none)\n");
}

TEST_F(WindowsRunner, ProgramThatNeverEndsIsStoppedAtTheTimeLimit) {
  limits_.time_seconds = 1;
  EXPECT_EQ(Run({}, L"wait").end, RunEnd::kTimeLimit);
}

TEST_F(WindowsRunner, ProgramThatWritesTooMuchIsStopped) {
  limits_.output_megabytes = 2;
  EXPECT_EQ(Run({L"write"}, folder_.output()).end, RunEnd::kOutputLimit);
}

TEST_F(WindowsRunner, FilesInTheTemporaryFolderCountToo) {
  limits_.output_megabytes = 2;
  EXPECT_EQ(Run({L"write"}, folder_.temporary() + L"\\x").end, RunEnd::kOutputLimit);
}

TEST_F(WindowsRunner, CrashIsNotTakenForAnExit) {
  EXPECT_EQ(Run({}, L"crash").end, RunEnd::kKilled);
}

}  // namespace
}  // namespace mg::converter
