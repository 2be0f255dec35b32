#include "corvane/base/text.h"
#include "programs/child_program.h"
#include "tests/support/import_seam.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <shellapi.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

MG_IMPORT_SEAM(L"kernel32.dll", CreateProcessW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", InitializeProcThreadAttributeList, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", TerminateJobObject, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", WaitForSingleObject, WAIT_FAILED)

namespace programs {
namespace {

using std::chrono::steady_clock;

std::unique_ptr<ChildProgram> cmd(std::vector<std::string> arguments,
                                  std::vector<std::pair<std::string, std::string>> environment = {}) {
  ChildCommand command;
  command.program = "C:\\windows\\system32\\cmd.exe";
  command.arguments = std::move(arguments);
  command.environment = std::move(environment);
  command.keepsErrors = true;
  return ChildProgram::start(command);
}

TEST(ChildProgram, SaysHowItEndedAndItsLastLineOfErrors) {
  const auto program = cmd({"/c", "echo first>&2&echo last>&2&exit 7"});
  EXPECT_EQ(program->wait(), 7);
  EXPECT_EQ(program->lastErrorLine(), "last");
}

TEST(ChildProgram, GetsValuesInItsEnvironment) {
  const auto program = cmd({"/c", "echo %OWN%>&2"}, {{"OWN", "a \"b\" = c"}});
  EXPECT_EQ(program->wait(), 0);
  EXPECT_EQ(program->lastErrorLine(), "a \"b\" = c");
}

TEST(ChildProgram, TakesEveryArgumentAsItIs) {
  const ImportSeams seams;
  std::wstring line;
  BOOL inherits = FALSE;
  DWORD flags = 0;
  CreateProcessWSeam.watch = [&](LPCWSTR, LPWSTR command, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL inherit,
                                 DWORD creation, LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION) {
    line = command;
    inherits = inherit;
    flags = creation;
  };
  const std::vector<std::string> odd = {"",       "a b",    "a\"b",  "a\\",      "a b\\",
                                        "a\\\"b", "%PATH%", "&|<>^", "\xC3\x96", "\""};
  const auto program = cmd(odd);
  program->end();
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(line.c_str(), &count);
  ASSERT_EQ(count, 11);
  for (std::size_t i = 0; i < odd.size(); ++i)
    EXPECT_EQ(corvane::toUtf8(words[i + 1]), odd[i]);
  LocalFree(words);
  // Only the handles of the list are inherited.
  EXPECT_EQ(inherits, TRUE);
  EXPECT_NE(flags & EXTENDED_STARTUPINFO_PRESENT, 0u);
}

TEST(ChildProgram, IsEndedAndAWaitEndsWithItsTimeOrWhenItIsLeft) {
  const auto program = cmd({"/c", "pause"});
  EXPECT_EQ(program->wait(steady_clock::now()), std::nullopt);
  std::thread leaving([&] { program->leave(); });
  EXPECT_EQ(program->wait(), std::nullopt);
  leaving.join();
  program->end();
  HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(program->processId()));
  EXPECT_EQ(WaitForSingleObject(process, 0), static_cast<DWORD>(WAIT_OBJECT_0));
  CloseHandle(process);
}

TEST(ChildProgram, IsEndedFirstAndWaitedForThen) {
  const auto program = cmd({"/c", "pause"});
  const ImportSeams seams;
  std::vector<std::string> calls;
  TerminateJobObjectSeam.watch = [&](HANDLE, UINT code) { calls.push_back("ends it with " + std::to_string(code)); };
  WaitForSingleObjectSeam.watch = [&](HANDLE, DWORD time) {
    if (time == ChildProgram::kEndMilliseconds) calls.emplace_back("waits");
  };
  program->end();
  EXPECT_EQ(calls, (std::vector<std::string>{"ends it with 143", "waits"}));
}

// Wine does not look at what Windows keeps for itself.
TEST(ChildProgram, AsksForOneListOfHandlesWithoutFlags) {
  const ImportSeams seams;
  int calls = 0;
  InitializeProcThreadAttributeListSeam.watch = [&](LPPROC_THREAD_ATTRIBUTE_LIST, DWORD count, DWORD flags, PSIZE_T) {
    ++calls;
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(flags, 0u);
  };
  EXPECT_EQ(cmd({"/c", "exit 3"})->wait(), 3);
  EXPECT_EQ(calls, 2);
}

TEST(ChildProgram, ThatDoesNotExistIsAnErrorOfTheSystem) {
  ChildCommand command;
  command.program = "C:\\no such program.exe";
  EXPECT_THROW(ChildProgram::start(command), std::system_error);
}

}  // namespace
}  // namespace programs
