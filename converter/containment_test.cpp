// What a hostile document, a crash or a killed converter leaves: nothing.
#include "converter/completeness.h"
#include "converter/folder_watch.h"
#include "converter/host_shell.h"
#include "converter/private_folder.h"
#include "tests/support/converter/beside_this_program.h"
#include "tests/support/converter/convert_fixture.h"
#include "util/win_handle.h"

#include <functional>

namespace mg::converter {
namespace {

class ContainmentTest : public ConvertTest {
 protected:
  static constexpr ULONGLONG kPatience = 20000;

  // A program that goes with the object.
  class Started {
   public:
    explicit Started(std::wstring line) {
      STARTUPINFOW startup = {};
      startup.cb = sizeof startup;
      PROCESS_INFORMATION process = {};
      EXPECT_TRUE(
          CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
      CloseHandle(process.hThread);
      m_process.reset(process.hProcess);
    }
    ~Started() { kill(); }
    void kill() {
      TerminateProcess(m_process.get(), 1);
      WaitForSingleObject(m_process.get(), INFINITE);
    }
    DWORD wait() {
      WaitForSingleObject(m_process.get(), INFINITE);
      DWORD code = 0;
      GetExitCodeProcess(m_process.get(), &code);
      return code;
    }

   private:
    ObjectHandle m_process;
  };

  static Started start(const JobPaths& paths) {
    return Started(besideThisProgram(L"ps2pdf.exe") + L" \"" + paths.input + L"\"");
  }
  // The folder of the run in it, or empty.
  std::wstring runFolder() const {
    for (const std::wstring& name : names()) {
      if (name.compare(0, 7, kFolderPrefix) == 0) return m_folder + L"\\" + name;
    }
    return L"";
  }
  bool waitFor(const std::wstring& folder, const std::function<bool()>& isSo) const {
    return FolderWatch(folder).waitUntil(GetTickCount64() + kPatience, isSo);
  }
  // True when no program of the host has the folder in its environment any longer, as Ghostscript has.
  bool hostHasForgotten(const std::wstring& folder) const {
    const std::wstring done = m_folder + L"\\forgotten";
    const std::string name = std::filesystem::path(folder).filename().string();
    startShell("while grep -qs " + name + " /proc/[0-9]*/environ; do sleep 0.1; done; : >" +
               shellWord(mg::converter::hostPath(done)));
    return waitFor(m_folder, [&] { return std::filesystem::exists(done); });
  }
};

// Learns the temporary folder from a name that Ghostscript makes there; "made" then makes a file of a name in it.
constexpr char kKnowsTheFolder[] =
    "%!PS-Adobe-3.0\nnull (w) .tempfile closefile /path exch def\n"
    "/t path 0 path length { 1 sub dup path exch get 47 eq { exit } if } loop 1 add getinterval def\n"
    "/made { /n exch def t length n length add string dup 0 t putinterval dup t length n putinterval (w) file } def\n";

std::string makesFiles(std::initializer_list<const char*> names) {
  std::string document = kKnowsTheFolder;
  for (const std::string name : names)
    document += "(" + name + ") made dup (x) writestring closefile\n";
  return document + "showpage\n";
}

TEST_F(ContainmentTest, TemporaryFilesWithNamesThatWindowsCannotDeleteAreGone) {
  const std::string document = makesFiles({"aux", "con", "nul.txt", "x.", "x ", "a:b", "a\\nb", "q?", "star*",
                                           "back\\\\slash", "-rf", "$HOME", "`date`", "'", "\\377\\376", "~"});
  EXPECT_EQ(convert(write(L"job", document), m_limits), 1);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
}

TEST_F(ContainmentTest, ManyTemporaryFilesAreGone) {
  m_limits.outputMegabytes = 64;
  const std::string document =
      std::string(kKnowsTheFolder) + "1 1 2000 { 10 string cvs made closefile } for showpage\n";
  EXPECT_EQ(convert(write(L"job", document), m_limits), 1);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
}

TEST_F(ContainmentTest, TheOutputLimitHoldsForTheSumOfAllFiles) {
  // Five files of three megabytes each; one alone is within the limit of eight.
  const ConversionError error = errorFor(std::string(kKnowsTheFolder) +
                                         "/block 65000 string def\n[(a) (b) (c) (d) (e)] { made 48 { dup block "
                                         "writestring } repeat closefile } forall {} loop\n");
  EXPECT_EQ(error.code(), ExitCode::kOutputLimit);
  EXPECT_EQ(error.text(),
            L"The document makes more than 8 megabytes of output. If the document is sound, raise "
            L"\"OutputLimitMegabytes\" in the registry key \"SOFTWARE\\Quillfern\\Marrowgate\\Converter\".");
}

TEST_F(ContainmentTest, ALongPathDoesNotKeepTheProgram) {
  m_folder += L"\\" + std::wstring(100, L'l');
  std::filesystem::create_directory(m_folder);
  const JobPaths paths = write(std::wstring(100, L'n'), kTwoPages);
  EXPECT_EQ(start(paths).wait(), 0u);
  EXPECT_EQ(names().size(), 2u);
}

TEST_F(ContainmentTest, AKilledConverterLeavesNeitherItsFolderNorARunningGhostscript) {
  if (!runsUnderWine()) GTEST_SKIP() << "Windows ends Ghostscript with the job object";
  const JobPaths paths = write(L"job", "%!PS-Adobe-3.0\n{} loop\n");
  Started program = start(paths);
  std::wstring folder;
  ASSERT_TRUE(waitFor(m_folder, [&] { return !(folder = runFolder()).empty(); }));
  // Ghostscript has opened its output: it runs.
  ASSERT_TRUE(waitFor(folder, [&] { return std::filesystem::exists(folder + L"\\out.pdf"); }));
  program.kill();
  EXPECT_TRUE(waitFor(m_folder, [&] { return !std::filesystem::exists(folder); }));
  EXPECT_TRUE(hostHasForgotten(folder));
  EXPECT_FALSE(std::filesystem::exists(paths.output));
}

TEST_F(ContainmentTest, TheNextRunRemovesWhatACrashHasLeft) {
  const std::wstring left = m_folder + L"\\ps2pdf-0123456789abcdef";
  std::filesystem::create_directories(left + L"\\tmp");
  for (const wchar_t* name : {L"\\in-use", L"\\out.pdf", L"\\tmp\\scratch"})
    std::ofstream(std::filesystem::path(left + name)) << "x";
  convert(write(L"job", kTwoPages), m_limits);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
}

TEST_F(ContainmentTest, ARunThatIsGoingOnIsNotSweptByTheNext) {
  const JobPaths slow = write(L"slow", "%!PS-Adobe-3.0\n{} loop\n");
  Started program = start(slow);
  std::wstring folder;
  ASSERT_TRUE(waitFor(m_folder, [&] { return !(folder = runFolder()).empty(); }));
  ASSERT_TRUE(waitFor(folder, [&] { return std::filesystem::exists(folder + L"\\out.pdf"); }));
  EXPECT_EQ(convert(write(L"job", kTwoPages), m_limits), 2);
  EXPECT_TRUE(std::filesystem::exists(folder + L"\\out.pdf"));
  program.kill();
  EXPECT_TRUE(waitFor(m_folder, [&] { return !std::filesystem::exists(folder); }));
}

TEST_F(ContainmentTest, ThePrivateFolderHoldsNothingThatADocumentCanWriteButItsTemporaryFilesAndTheOutput) {
  for (const char* name : {"run.ps", "said.txt", "status", "in-use", "new"}) {
    const ConversionError error = errorFor("%!PS-Adobe-3.0\n(" + std::string(name) + ") (w) file showpage\n");
    EXPECT_EQ(error.code(), ExitCode::kPostScript) << name;
  }
}

// The Windows runner's own: what it has started ends with it.
TEST_F(ContainmentTest, WhatTheWindowsRunnerStartedEndsWhenItIsKilled) {
  const std::wstring number = std::to_wstring(GetCurrentProcessId());
  const ObjectHandle isUp(CreateEventW(nullptr, TRUE, FALSE, (L"mg-up-" + number).c_str()));
  std::wstring line = besideThisProgram(L"converter_child.exe");
  line += L" run \"" + m_folder + L"\\x\" hold mg-held-" + number + L" mg-up-" + number;
  Started program(line);
  ASSERT_EQ(WaitForSingleObject(isUp.get(), kPatience), WAIT_OBJECT_0);
  const ObjectHandle held(OpenMutexW(SYNCHRONIZE, FALSE, (L"mg-held-" + number).c_str()));
  ASSERT_TRUE(held);
  program.kill();
  EXPECT_EQ(WaitForSingleObject(held.get(), kPatience), WAIT_ABANDONED);
}

}  // namespace
}  // namespace mg::converter
