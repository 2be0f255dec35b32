// Real runs of Ghostscript, on the host when under Wine.
#include "converter/convert.h"

#include "converter/conversion_error.h"
#include "converter/pdf_check.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>

namespace mg::converter {
namespace {

const char kTwoPages[] =
    "%!PS-Adobe-3.0\n/Helvetica findfont 20 scalefont setfont\n"
    "72 700 moveto (one) show showpage\n72 700 moveto (two) show showpage\n";

// The path as Ghostscript sees it.
std::string hostPath(const std::wstring& path) {
  const auto translate = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  return translate != nullptr ? translate(path.c_str()) : std::filesystem::path(path).generic_string();
}

class ConvertTest : public testing::Test {
 protected:
  ConvertTest() {
    wchar_t temporary[MAX_PATH];
    GetTempPathW(MAX_PATH, temporary);
    m_folder = std::wstring(temporary) + L"convert-test-" + std::to_wstring(GetCurrentProcessId());
    std::filesystem::create_directory(m_folder);
    m_limits.timeSeconds = 20;
    m_limits.memoryMegabytes = 512;
    m_limits.outputMegabytes = 8;
  }
  ~ConvertTest() override { std::filesystem::remove_all(m_folder); }

  JobPaths write(const std::wstring& name, const std::string& bytes) {
    const std::wstring path = m_folder + L"\\" + name + L".ps";
    std::ofstream(std::filesystem::path(path), std::ios::binary) << bytes;
    return {path, m_folder + L"\\" + name + L".pdf"};
  }
  // Converts and expects no PDF and no other trace; gives the error.
  ConversionError errorFor(const std::string& bytes) {
    const JobPaths paths = write(L"job", bytes);
    try {
      convert(paths, m_limits);
    } catch (const ConversionError& error) {
      EXPECT_EQ(names(), std::set<std::wstring>{L"job.ps"});
      return error;
    }
    return ConversionError(ExitCode::kDone, L"no error");
  }
  std::set<std::wstring> names() const {
    std::set<std::wstring> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder))
      names.insert(entry.path().filename());
    return names;
  }

  std::wstring m_folder;
  Limits m_limits;
};

TEST_F(ConvertTest, TwoPagesBecomeAPdfOfTwoPagesAndNothingElseIsLeft) {
  const JobPaths paths = write(L"job", kTwoPages);
  EXPECT_EQ(convert(paths, m_limits), 2);
  EXPECT_EQ(countPdfPages(paths.output), 2);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
}

TEST_F(ConvertTest, NamesWithCharactersOfShellsAndOtherScriptsWork) {
  for (const wchar_t* name : {L"two blanks  #17", L"it's $HOME `date`;&(x)%d!", L"-o x", L"\u00e4\u20ac\u65e5"}) {
    const JobPaths paths = write(name, kTwoPages);
    EXPECT_EQ(convert(paths, m_limits), 2);
    EXPECT_TRUE(std::filesystem::exists(paths.output));
  }
}

TEST_F(ConvertTest, FolderWithAPercentSignIsNotTakenForAPageNumberFormat) {
  m_folder += L"%d 100%";
  std::filesystem::create_directory(m_folder);
  EXPECT_EQ(convert(write(L"job", kTwoPages), m_limits), 2);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
}

TEST_F(ConvertTest, DocumentThatQuitsAfterItsPagesIsWhole) {
  EXPECT_EQ(convert(write(L"job", std::string(kTwoPages) + "quit\n"), m_limits), 2);
}

TEST_F(ConvertTest, CopiesInTheDocumentAreNotMistakenForPages) {
  EXPECT_EQ(convert(write(L"job", "%!PS-Adobe-3.0\n/#copies 3 def showpage\n"), m_limits), 1);
}

TEST_F(ConvertTest, ErrorInThePostScriptIsReportedInGhostscriptsWords) {
  const ConversionError error = errorFor("%!PS-Adobe-3.0\nshowpage nosuchname\n");
  EXPECT_EQ(error.code(), ExitCode::kPostScript);
  EXPECT_EQ(error.text(),
            L"Ghostscript ended with 1: Error: /undefined in nosuchname. The PostScript of this document is in error.");
}

TEST_F(ConvertTest, CutDocumentIsAnError) {
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\nshowpage (cut in the mid").code(), ExitCode::kPostScript);
}

TEST_F(ConvertTest, EarlierPdfOfTheSameNameIsGoneAfterAFailure) {
  std::ofstream(std::filesystem::path(m_folder + L"\\job.pdf")) << "old";
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\nnosuchname\n").code(), ExitCode::kPostScript);
}

TEST_F(ConvertTest, DocumentWithoutAPageIsRefusedAlthoughGhostscriptWritesABlankOne) {
  const ConversionError error = errorFor("%!PS-Adobe-3.0\n1 pop\n");
  EXPECT_EQ(error.code(), ExitCode::kIncomplete);
  EXPECT_EQ(error.text(), L"The document has no page.");
}

TEST_F(ConvertTest, EndlessDocumentIsStoppedAtTheTimeLimit) {
  m_limits.timeSeconds = 2;
  const ConversionError error = errorFor("%!PS-Adobe-3.0\n{} loop\n");
  EXPECT_EQ(error.code(), ExitCode::kTimeLimit);
  EXPECT_EQ(error.text(),
            L"The document took longer than 2 seconds. If the document is sound, raise \"TimeLimitSeconds\" in the "
            L"registry key \"SOFTWARE\\Quillfern\\Marrowgate\\Converter\".");
}

TEST_F(ConvertTest, DocumentThatEatsMemoryIsStopped) {
  const ConversionError error =
      errorFor("%!PS-Adobe-3.0\n/a 9999 array def 0 1 9998 { a exch 10000000 string put } for\n");
  EXPECT_EQ(error.code(), ExitCode::kMemoryLimit);
  EXPECT_NE(error.text().find(L"needs more than 512 megabytes of memory"), std::wstring::npos);
}

TEST_F(ConvertTest, DocumentThatFillsTheDiskWithPagesIsStopped) {
  const ConversionError error = errorFor(
      "%!PS-Adobe-3.0\n/r 65000 string def { 500 500 scale 250 250 8 [250 0 0 250 0 0] "
      "{ r 0 1 64999 { r exch rand 255 and put } for } image showpage } loop\n");
  EXPECT_EQ(error.code(), ExitCode::kOutputLimit);
  EXPECT_NE(error.text().find(L"more than 8 megabytes of output"), std::wstring::npos);
}

TEST_F(ConvertTest, DocumentThatFillsTheDiskWithWordsIsStopped) {
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\n{ (flood flood flood flood flood flood\\n) print } loop\n").code(),
            ExitCode::kOutputLimit);
}

TEST_F(ConvertTest, PagesCannotBeSentToAnotherFile) {
  EXPECT_EQ(
      convert(write(L"job", "%!PS-Adobe-3.0\n<</OutputFile (other.pdf)>> setpagedevice showpage showpage\n"), m_limits),
      2);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps"}));
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\n<</.LockSafetyParams false>> setpagedevice showpage\n").code(),
            ExitCode::kPostScript);
}

TEST_F(ConvertTest, DocumentCannotListReadOrDeleteFilesBesideIt) {
  write(L"secret", "secret");
  const std::string folder = hostPath(m_folder);
  // It sees its own name and those of Ghostscript's temporary files.
  const std::string list =
      "(" + folder + "/*) { (secret) search { listedafile } { pop } ifelse } 256 string " + "filenameforall\n";
  const std::string read = "{ (" + folder + "/secret.ps) (r) file } stopped { clear } { readafile } ifelse\n";
  const std::string remove = "{ (" + folder + "/secret.ps) deletefile } stopped { clear } { deletedafile } ifelse\n";
  const JobPaths paths = write(L"job", "%!PS-Adobe-3.0\n" + list + read + remove + "showpage\n");
  EXPECT_EQ(convert(paths, m_limits), 1);
  EXPECT_EQ(names(), (std::set<std::wstring>{L"job.pdf", L"job.ps", L"secret.ps"}));
}

TEST_F(ConvertTest, MissingAndEmptyFilesAreNamed) {
  const JobPaths none = {m_folder + L"\\none.ps", m_folder + L"\\none.pdf"};
  try {
    convert(none, m_limits);
    FAIL() << "accepted";
  } catch (const ConversionError& error) {
    EXPECT_EQ(error.code(), ExitCode::kInput);
    EXPECT_EQ(error.text().find(L"\"" + none.input + L"\" cannot be read: "), 0u);
  }
  const ConversionError empty = errorFor("");
  EXPECT_EQ(empty.code(), ExitCode::kInput);
  EXPECT_EQ(empty.text(), L"\"" + m_folder + L"\\job.ps\" is empty. Print the document again.");
}

TEST_F(ConvertTest, MissingGhostscriptIsNamedWithThePlaceToCorrectIt) {
  m_limits.ghostscript = L"/nonexistent/gs";
  const ConversionError error = errorFor(kTwoPages);
  EXPECT_EQ(error.code(), ExitCode::kGhostscriptMissing);
  EXPECT_EQ(error.text(),
            L"Ghostscript (\"/nonexistent/gs\") cannot be started (127). Install it, or correct \"GhostscriptPath\" in "
            L"the registry key \"SOFTWARE\\Quillfern\\Marrowgate\\Converter\".");
}

// The program itself, as the print monitor starts it: narrow command line, standard output in a file.
TEST_F(ConvertTest, ProgramWritesItsErrorToStandardOutputAndExitsWithItsNumber) {
  wchar_t self[MAX_PATH];
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  const std::string program = (std::filesystem::path(self).parent_path() / L"ps2pdf.exe").string();
  const std::filesystem::path logPath(m_folder + L"\\job.log");
  const auto run = [&](std::string line) {
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    const HANDLE log =
        CreateFileW(logPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0, nullptr);
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = log;
    PROCESS_INFORMATION process = {};
    EXPECT_TRUE(CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process));
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 99;
    GetExitCodeProcess(process.hProcess, &code);
    for (const HANDLE handle : {process.hProcess, process.hThread, log})
      CloseHandle(handle);
    std::ifstream file(logPath, std::ios::binary);
    return std::to_string(code) + " " + std::string(std::istreambuf_iterator<char>(file), {});
  };
  const JobPaths good = write(L"Laser-2 - Job #17-90210", kTwoPages);
  EXPECT_EQ(run(program + " \"" + std::filesystem::path(good.input).string() + "\""), "0 ");
  EXPECT_EQ(countPdfPages(good.output), 2);
  EXPECT_EQ(run(program),
            "1 ps2pdf: Usage: ps2pdf.exe \"<file.ps>\" writes <file.pdf> beside it; the name must end in \".ps\".\r\n");
  const JobPaths wrong = write(L"wrong", "%!PS-Adobe-3.0\nnosuchname\n");
  EXPECT_EQ(run(program + " \"" + std::filesystem::path(wrong.input).string() + "\"").substr(0, 34),
            "5 ps2pdf: Ghostscript ended with 1");
}

}  // namespace
}  // namespace mg::converter
