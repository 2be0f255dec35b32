#include "server/launcher.h"
#include "tests/support/import_seam.h"
#include "util/win_handle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <userenv.h>
#include <wtsapi32.h>

MG_PLAIN_SEAM(L"wtsapi32.dll", WTSQueryUserToken, FALSE)
MG_PLAIN_SEAM(L"userenv.dll", CreateEnvironmentBlock, FALSE)
MG_PLAIN_SEAM(L"userenv.dll", DestroyEnvironmentBlock, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", CreateProcessAsUserW, FALSE)

namespace aps {
namespace {

using ::testing::ElementsAre;

// cmd.exe stands for notepad.exe, because it ends by itself and says how.
const Launch kLaunch{L"cmd.exe", L"\"/c exit 7\"", L"Preview PDF (session 5)", 5};

std::string causeOf(const Launch& launch) {
  try {
    startProgram(launch, "");
    return "it started";
  } catch (const std::runtime_error& refusal) {
    return refusal.what();
  }
}

// Logged on to session 5 is the user of this process: who a session's user is cannot be tried on one machine.
class StartedProgramTest : public ::testing::Test {
 protected:
  StartedProgramTest() {
    WTSQueryUserTokenSeam.replacement = [this](ULONG session, HANDLE* token) {
      m_session = session;
      return OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, token);
    };
  }

  ImportSeams m_seams;
  ULONG m_session = 0;
};

TEST_F(StartedProgramTest, RunsOnTheDesktopOfTheSessionsUserFromTheSystemFolder) {
  void* environment = nullptr;
  std::wstring path, command, desktop, folder;
  BOOL inherits = TRUE;
  DWORD flags = 0;
  CreateProcessAsUserWSeam.watch = [&](HANDLE, LPCWSTR application, LPWSTR line, LPSECURITY_ATTRIBUTES,
                                       LPSECURITY_ATTRIBUTES, BOOL inherit, DWORD creation, LPVOID block,
                                       LPCWSTR directory, LPSTARTUPINFOW start, LPPROCESS_INFORMATION) {
    path = application;
    command = line;
    inherits = inherit;
    flags = creation;
    environment = block;
    folder = directory;
    desktop = start->lpDesktop;
  };
  const auto program = startProgram(kLaunch, "");
  EXPECT_EQ(m_session, 5u);
  EXPECT_EQ(path, L"C:\\windows\\system32\\cmd.exe");
  EXPECT_EQ(command, L"\"C:\\windows\\system32\\cmd.exe\" /c exit 7");
  EXPECT_EQ(folder, L"C:\\windows\\system32");
  EXPECT_EQ(desktop, L"winsta0\\default");
  EXPECT_NE(environment, nullptr);
  EXPECT_EQ(flags, static_cast<DWORD>(CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP));
  EXPECT_EQ(inherits, FALSE);
  EXPECT_NE(program->processId(), 0u);
  EXPECT_EQ(program->wait(), 7);
  EXPECT_THAT(m_seams.calls(), ElementsAre("WTSQueryUserToken", "CreateEnvironmentBlock", "CreateProcessAsUserW",
                                           "DestroyEnvironmentBlock"));
}

TEST_F(StartedProgramTest, SaysWhatToDoWhenTheSystemGivesNoUser) {
  WTSQueryUserTokenSeam.fail(1, FALSE, ERROR_PRIVILEGE_NOT_HELD);
  EXPECT_EQ(causeOf(kLaunch),
            "the system does not give the user of session 5, error 1314; aps must run as the local system account, and "
            "a user must be logged on to that session");
}

TEST_F(StartedProgramTest, SaysWhatToDoWhenTheUserHasNoEnvironment) {
  CreateEnvironmentBlockSeam.fail(1, FALSE, ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(causeOf(kLaunch),
            "the environment of the user of session 5 cannot be made, error 2; check the user's profile");
}

TEST_F(StartedProgramTest, SaysWhatToDoWhenTheProgramDoesNotExist) {
  Launch launch = kLaunch;
  launch.program = L"no such program.exe";
  EXPECT_EQ(
      causeOf(launch),
      "the program does not start in session 5, error 2; it must be in the system folder, and aps must run as the "
      "local system account");
  EXPECT_EQ(m_seams.calls().back(), "DestroyEnvironmentBlock");
}

TEST_F(StartedProgramTest, LeavingEndsTheWaitAndNotTheProgram) {
  Launch launch = kLaunch;
  // Goes on until it is ended, whatever the standard input of the tests is.
  launch.arguments = L"\"/c for /l %i in (1,0,2) do @rem\"";
  const auto program = startProgram(launch, "");
  const mg::ObjectHandle process(
      OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, static_cast<DWORD>(program->processId())));
  std::jthread leaving([&] { program->leave(); });
  EXPECT_EQ(program->wait(), std::nullopt);
  leaving.join();
  EXPECT_EQ(WaitForSingleObject(process.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
  TerminateProcess(process.get(), 0);
}

// Wine gives this process's own user for every session. Windows gives a session's user to the local system only, so
// there a run by anybody else ends in the refusal with error 1314.
TEST(StartedProgramUnderWine, TheSystemGivesAUserForWhomTheProgramRuns) {
  const ImportSeams seams;
  EXPECT_EQ(startProgram(kLaunch, "")->wait(), 7);
}

}  // namespace
}  // namespace aps
