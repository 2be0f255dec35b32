// What the host's shell does around a program, under Wine.
#include "converter/ghostscript.h"
#include "converter/host_shell.h"
#include "converter/private_folder.h"
#include "tests/support/import_seam.h"
#include "tests/support/temporary_folder.h"

#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

MG_IMPORT_SEAM(L"kernel32.dll", CreateProcessW, FALSE)

namespace mg::converter {
namespace {

class HostRunner : public testing::Test {
 protected:
  void SetUp() override {
    if (!runsUnderWine()) GTEST_SKIP() << "there is no host below";
    TemporaryFolder::write(m_input, "%!PS-Adobe-3.0");
  }

  RunResult run(const std::wstring& program, const std::vector<std::wstring>& arguments = {}) {
    return runOnHost({program, arguments, m_input}, m_folder, m_limits);
  }
  // Runs a line of the shell, which is expected to end by itself.
  void runLine(const wchar_t* line) {
    const RunResult result = run(L"sh", {L"-c", line});
    EXPECT_EQ(result.end, RunEnd::kExited);
    EXPECT_EQ(result.code, 0);
  }
  std::string said() const { return TemporaryFolder::read(m_folder.said()); }

  TemporaryFolder m_parent;
  std::wstring m_input = m_parent.file(L"document.ps");
  PrivateFolder m_folder{m_input};
  Limits m_limits;
};

TEST_F(HostRunner, TheProgramSeesNothingOfTheEnvironmentThatWeHave) {
  SetEnvironmentVariableW(L"GS_OPTIONS", L"-dNOSAFER");
  EXPECT_EQ(run(L"env").end, RunEnd::kExited);
  SetEnvironmentVariableW(L"GS_OPTIONS", nullptr);
  std::istringstream lines(said());
  std::vector<std::string> variables;
  for (std::string line; std::getline(lines, line);)
    variables.push_back(line);
  std::sort(variables.begin(), variables.end());
  const std::string temporary = hostPath(m_folder.path()) + "/tmp";
  EXPECT_EQ(variables,
            (std::vector<std::string>{"HOME=" + temporary, "LC_ALL=C.UTF-8", "PATH=/usr/local/bin:/usr/bin:/bin",
                                      "TEMP=" + temporary, "TMP=" + temporary, "TMPDIR=" + temporary}));
}

TEST_F(HostRunner, TheDocumentIsTheStandardInputAndNoOtherFileIsOpenBesideTheOutput) {
  runLine(L"cat; [ -e /proc/$$/fd/3 ] || echo ' and no more'");
  EXPECT_EQ(said(), "%!PS-Adobe-3.0 and no more\n");
}

// Kilobytes of memory, and blocks of 512 bytes of one file.
TEST_F(HostRunner, TheLimitsAreNeitherMoreNorLessThanWasAskedFor) {
  m_limits.memoryMegabytes = 300;
  m_limits.outputMegabytes = 7;
  runLine(L"ulimit -v; ulimit -f");
  EXPECT_EQ(said(), "307200\n14336\n");
}

// The shell itself has a limit, too, for the case that its converter ended before it could hold the pipe open.
TEST_F(HostRunner, TheShellThatRunsTheProgramIsEndedAMinuteAfterItsTimeLimit) {
  const ImportSeams seams;
  std::wstring started;
  CreateProcessWSeam.watch = [&](LPCWSTR, LPWSTR line, auto&&...) { started = line; };
  m_limits.timeSeconds = 7;
  runLine(L"exit 0");
  EXPECT_EQ(started.substr(0, 34), L"sh -c \"exec timeout -k 1 67 sh -c ");
}

TEST_F(HostRunner, OutputJustBelowTheLimitIsWithinIt) {
  m_limits.outputMegabytes = 2;
  runLine(L"head -c 2000000 /dev/zero >out.pdf");
}

// The status of the end and too many bytes come in the same moment, so that no look is between them; and they stay, so
// that the next look finds both.
TEST_F(HostRunner, WhatWasWrittenInTheLastMomentCounts) {
  m_limits.outputMegabytes = 2;
  const std::wstring last = m_parent.file(L"last");
  TemporaryFolder::write(last, "0\n" + std::string(3000000, '\0'));
  const std::string path = hostPath(last);
  const std::wstring line = L"mv \"$0\" status; while [ -e status ]; do sleep 0.01; done";
  EXPECT_EQ(run(L"sh", {L"-c", line, std::wstring(path.begin(), path.end())}).end, RunEnd::kOutputLimit);
}

TEST_F(HostRunner, AProgramThatDoesNotEndWhenItIsAskedToIsKilledByTheHost) {
  m_limits.timeSeconds = 1;
  EXPECT_EQ(run(L"sh", {L"-c", L"trap '' TERM; sleep 1000"}).end, RunEnd::kTimeLimit);
  EXPECT_EQ(TemporaryFolder::read(m_folder.path() + L"\\status"), "137\n") << "of a killed program";
}

// Deeper than Windows could remove them itself, and too many to be gone at once.
TEST_F(HostRunner, WhenTheProgramHasEndedItsTemporaryFilesAreGone) {
  runLine(
      L"cd tmp; for i in 1 2 3; do n=$(printf %0100d $i); mkdir $n; cd $n; done; "
      L"i=0; while [ $i -lt 5000 ]; do : >$i; i=$((i + 1)); done");
  EXPECT_FALSE(TemporaryFolder::exists(m_folder.temporary()));
}

}  // namespace
}  // namespace mg::converter
