#include "converter/conversion_error.h"
#include "converter/ghostscript.h"
#include "converter/private_folder.h"
#include "tests/support/converter/beside_this_program.h"
#include "tests/support/import_seam.h"
#include "util/win_handle.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

MG_IMPORT_SEAM(L"kernel32.dll", SetInformationJobObject, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", AssignProcessToJobObject, FALSE)

namespace mg::converter {
namespace {

class WindowsRunner : public testing::Test {
 protected:
  RunResult run(const std::vector<std::wstring>& arguments) {
    return runOnWindows({besideThisProgram(L"converter_child.exe"), arguments, m_input}, m_folder, m_limits);
  }
  // Why a program that would print something is not run.
  ConversionError refusal() {
    try {
      run({L"environment"});
    } catch (const ConversionError& error) {
      return error;
    }
    return ConversionError(ExitCode::kDone, L"it ran");
  }
  // Keeps the process that is put under limits next, for its end to be looked at.
  void keepProcess() {
    AssignProcessToJobObjectSeam.watch = [this](HANDLE, HANDLE process) {
      DuplicateHandle(GetCurrentProcess(), process, GetCurrentProcess(), m_process.receive(), 0, FALSE,
                      DUPLICATE_SAME_ACCESS);
    };
  }
  // What that process ended with; it is not waited for.
  DWORD codeOfEnded() const {
    EXPECT_EQ(WaitForSingleObject(m_process.get(), 0), WAIT_OBJECT_0) << "it has not ended";
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(m_process.get(), &code));
    return code;
  }
  std::string said() const {
    std::ifstream file{std::filesystem::path(m_folder.said())};
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }

  const ImportSeams m_seams;
  ObjectHandle m_process;
  PrivateFolder m_folder{besideThisProgram(L"x")};
  std::wstring m_input = besideThisProgram(L"converter_child.exe");
  Limits m_limits;
};

TEST_F(WindowsRunner, ExitCodeIsHandedBack) {
  const RunResult result = run({L"exit", L"7"});
  EXPECT_EQ(result.end, RunEnd::kExited);
  EXPECT_EQ(result.code, 7);
}

// Not every system holds a program to it, so what is asked for is looked at.
TEST_F(WindowsRunner, TheJobObjectLimitsTheMemoryAndEndsTheProgramWithUs) {
  HANDLE limited = nullptr;
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  SetInformationJobObjectSeam.watch = [&](HANDLE job, JOBOBJECTINFOCLASS kind, LPVOID data, DWORD size) {
    EXPECT_EQ(kind, JobObjectExtendedLimitInformation);
    ASSERT_EQ(size, sizeof limits);
    limited = job;
    limits = *static_cast<const JOBOBJECT_EXTENDED_LIMIT_INFORMATION*>(data);
  };
  HANDLE assigned = nullptr;
  AssignProcessToJobObjectSeam.watch = [&](HANDLE job, HANDLE) { assigned = job; };
  m_limits.memoryMegabytes = 300;
  EXPECT_EQ(run({L"exit", L"7"}).code, 7);
  EXPECT_EQ(limits.BasicLimitInformation.LimitFlags,
            static_cast<DWORD>(JOB_OBJECT_LIMIT_JOB_MEMORY | JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE |
                               JOB_OBJECT_LIMIT_DIE_ON_UNHANDLED_EXCEPTION));
  EXPECT_EQ(limits.JobMemoryLimit, SIZE_T{300} << 20);
  EXPECT_NE(limited, nullptr);
  EXPECT_EQ(assigned, limited);
}

TEST_F(WindowsRunner, AProgramThatCannotBePutUnderLimitsDoesNotRun) {
  const std::wstring denied = systemErrorText(ERROR_ACCESS_DENIED);
  keepProcess();
  SetInformationJobObjectSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  EXPECT_EQ(refusal().text(), L"The limits of the job object cannot be set: " + denied + L".");
  EXPECT_FALSE(m_process) << "started";
  AssignProcessToJobObjectSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  const ConversionError error = refusal();
  EXPECT_EQ(error.text(), L"Ghostscript cannot be put under limits: " + denied + L".");
  EXPECT_EQ(error.code(), ExitCode::kFileSystem);
  EXPECT_EQ(WaitForSingleObject(m_process.get(), 60000), WAIT_OBJECT_0);
  EXPECT_EQ(codeOfEnded(), 1u);
  EXPECT_EQ(said(), "");
}

TEST_F(WindowsRunner, ADocumentThatCannotBeOpenedIsNamed) {
  m_input = m_folder.temporary() + L"\\none";
  EXPECT_EQ(refusal().text(),
            L"\"" + m_input + L"\" cannot be opened for Ghostscript: " + systemErrorText(ERROR_FILE_NOT_FOUND) + L".");
  EXPECT_EQ(refusal().code(), ExitCode::kFileSystem);
}

TEST_F(WindowsRunner, MissingProgramIsNotStarted) {
  const RunResult result = runOnWindows({L"C:\\none\\gswin64c.exe", {}, m_input}, m_folder, m_limits);
  EXPECT_EQ(result.end, RunEnd::kNotStarted);
  EXPECT_EQ(result.code, ERROR_PATH_NOT_FOUND);
}

TEST_F(WindowsRunner, TemporaryFolderIsThePrivateOneAndOptionsFromOutsideAreNotHandedOn) {
  SetEnvironmentVariableW(L"GS_OPTIONS", L"-dNOSAFER");
  run({L"environment"});
  SetEnvironmentVariableW(L"GS_OPTIONS", nullptr);
  const std::wstring wide = m_folder.temporary();
  const std::string path(wide.begin(), wide.end());
  EXPECT_EQ(said(), path + "\n" + path + "\n" + path + "\n(none)\n");
}

TEST_F(WindowsRunner, ProgramThatNeverEndsIsStoppedAtTheTimeLimit) {
  m_limits.timeSeconds = 1;
  keepProcess();
  EXPECT_EQ(run({L"wait"}).end, RunEnd::kTimeLimit);
  EXPECT_EQ(codeOfEnded(), 1u) << "not stopped, and waited for, before its job object went";
}

TEST_F(WindowsRunner, ProgramThatWritesTooMuchIsStopped) {
  m_limits.outputMegabytes = 2;
  keepProcess();
  EXPECT_EQ(run({L"write", m_folder.output()}).end, RunEnd::kOutputLimit);
  EXPECT_EQ(codeOfEnded(), 1u) << "not stopped, and waited for, before its job object went";
}

TEST_F(WindowsRunner, FilesInTheTemporaryFolderCountToo) {
  m_limits.outputMegabytes = 2;
  EXPECT_EQ(run({L"write", m_folder.temporary() + L"\\x"}).end, RunEnd::kOutputLimit);
}

TEST_F(WindowsRunner, WhatWasWrittenIsLookedAtAfterTheEndToo) {
  m_limits.outputMegabytes = 0;  // the file of its output alone is more; it ends before the first look
  EXPECT_EQ(run({L"exit", L"0"}).end, RunEnd::kOutputLimit);
}

TEST_F(WindowsRunner, TheDocumentIsTheStandardInput) {
  m_input = m_folder.temporary() + L"\\document";
  std::ofstream(std::filesystem::path(m_input)) << "%!PS-Adobe-3.0";
  EXPECT_EQ(run({L"input"}).end, RunEnd::kExited);
  EXPECT_EQ(said(), "<%!PS-Adobe-3.0>");
}

TEST_F(WindowsRunner, CrashIsNotTakenForAnExit) {
  EXPECT_EQ(run({L"crash"}).end, RunEnd::kKilled);
}

}  // namespace
}  // namespace mg::converter
