// Real runs of Ghostscript, on the host when under Wine.
#include "converter/convert.h"

#include "converter/completeness.h"
#include "tests/support/converter/convert_fixture.h"
#include "tests/support/import_seam.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

MG_IMPORT_SEAM(L"kernel32.dll", MoveFileExW, FALSE)

namespace mg::converter {
namespace {

// The path as Ghostscript sees it.
std::string ghostscriptPath(const std::wstring& path) {
  const auto translate = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  return translate != nullptr ? translate(path.c_str()) : std::filesystem::path(path).generic_string();
}

TEST_F(ConvertTest, TwoPagesBecomeAPdfOfTwoPagesAndNothingElseIsLeft) {
  const JobPaths paths = write(L"job", kTwoPages);
  EXPECT_EQ(convert(paths, m_limits), 2);
  EXPECT_EQ(countPdfPages(paths.output).count, 2);
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
            L"Ghostscript: undefined in nosuchname. The PostScript of this document is in error: 1 page came.");
}

TEST_F(ConvertTest, CutDocumentIsAnError) {
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\nshowpage (cut in the mid").code(), ExitCode::kPostScript);
}

// A document of so many pages with all its comments; `last` stands in place of the last page's "showpage".
std::string announced(int pages, const std::string& last = "showpage\n") {
  std::string document = "%!PS-Adobe-3.0\n%%Pages: " + std::to_string(pages) + "\n%%EndComments\n";
  for (int i = 1; i <= pages; ++i) {
    const std::string number = std::to_string(i);
    document += "%%Page: " + number + " " + number + "\n10 10 50 50 rectfill\n" + (i < pages ? "showpage\n" : last);
  }
  return document + "%%Trailer\n%%EOF\n";
}

TEST_F(ConvertTest, DocumentThatPrintsAllItAnnouncesIsWhole) {
  EXPECT_EQ(convert(write(L"job", announced(17)), m_limits), 17);
}

TEST_F(ConvertTest, DocumentCutBetweenTokensIsRefusedWithBothNumbers) {
  std::string document = announced(17);
  document.resize(document.find("%%Page: 9 9"));
  const ConversionError error = errorFor(document);
  EXPECT_EQ(error.code(), ExitCode::kIncomplete);
  EXPECT_EQ(error.text(),
            L"The PDF would not be complete: the file ends before the document does. 17 pages announced, 8 pages came. "
            L"Print the document again from its application.");
}

TEST_F(ConvertTest, HandlerThatPrintsAPageOfItsOwnAndQuitsDoesNotHideTheError) {
  const std::string handler = "errordict /handleerror { 99 99 9 9 rectfill showpage quit } put\n";
  std::string document = announced(2, "nosuchname showpage\n");
  document.insert(document.find("%%Page: 1"), handler);
  const ConversionError error = errorFor(document);
  EXPECT_EQ(error.code(), ExitCode::kPostScript);
  EXPECT_EQ(error.text(),
            L"Ghostscript: undefined in nosuchname. The PostScript of this document is in error: 2 pages announced, 1 "
            L"page came.");
}

TEST_F(ConvertTest, DocumentThatCatchesItsErrorPrintsAPageAboutItAndQuitsIsRefusedWithTheFirstError) {
  const ConversionError error = errorFor(
      announced(2,
                "{ 1 0 div } stopped { 99 99 9 9 rectfill { nosuchname } stopped clear showpage quit } if showpage\n"
                "% and more of the document, which is never reached by the interpreter any longer\n"));
  EXPECT_EQ(error.code(), ExitCode::kIncomplete);
  EXPECT_EQ(error.text(),
            L"The PDF would not be complete: the document quit after an error. 2 pages announced, 2 pages came; the "
            L"first error was undefinedresult in div. Print the document again from its application.");
}

TEST_F(ConvertTest, ErrorThatTheDocumentReportsItselfIsRefused) {
  for (const char* handler : {"", "errordict /handleerror { 9 9 9 9 rectfill } put\n"}) {
    const ConversionError error =
        errorFor(std::string("%!PS-Adobe-3.0\n") + handler + "{ 1 (a) add } stopped { handleerror } if showpage\n");
    EXPECT_NE(error.text().find(L"the document met an error and gave up. 1 page came; the first error was typecheck in "
                                L"add."),
              std::wstring::npos)
        << error.what();
  }
}

TEST_F(ConvertTest, ErrorThatTheDocumentGetsOverIsNone) {
  EXPECT_EQ(convert(write(L"job", announced(2, "[{ nosuchname } stopped cleartomark showpage\n")), m_limits), 2);
  EXPECT_EQ(convert(write(L"job",
                          "%!PS-Adobe-3.0\n/NoSuchFont findfont pop [{ << /Duplex true /NoSuch 7 >> "
                          "setpagedevice } stopped cleartomark showpage quit\n"),
                    m_limits),
            1);
}

TEST_F(ConvertTest, WordsThatTheDocumentPrintsItselfAreNotTakenForGhostscripts) {
  EXPECT_EQ(convert(write(L"job", "%!PS-Adobe-3.0\n(Error: /VMerror in --run--\\n) print showpage\n"), m_limits), 1);
}

TEST_F(ConvertTest, StopThatNobodyCatchesIsRefused) {
  const ConversionError error = errorFor("%!PS-Adobe-3.0\nshowpage stop showpage\n");
  EXPECT_EQ(error.code(), ExitCode::kPostScript);
  EXPECT_EQ(error.text(),
            L"The document gave up (\"stop\"): 1 page came. The PostScript of this document is in error.");
}

TEST_F(ConvertTest, MissingLastShowpageIsRefused) {
  EXPECT_NE(errorFor(announced(3, "")).text().find(L"\"showpage\" is missing. 3 pages announced, 2 pages came."),
            std::wstring::npos);
  EXPECT_NE(errorFor("%!PS-Adobe-3.0\nshowpage 9 9 9 9 rectfill\n").text().find(L"\"showpage\" is missing. 1 page"),
            std::wstring::npos);
}

TEST_F(ConvertTest, QuittingBeforeTheLastPageIsRefused) {
  std::string document = announced(17);
  document.insert(document.find("%%Page: 9 9"), "quit\n");
  EXPECT_NE(errorFor(document).text().find(L"the document quit before its last page. 17 pages announced, 8 pages"),
            std::wstring::npos);
}

TEST_F(ConvertTest, NamesThatTheDocumentTakesForItselfDoNotHideItsEnd) {
  const std::string taken =
      "%!PS-Adobe-3.0\n/true {false} def /print {pop} def /search {pop} def /currentpagedevice "
      "{nosuch} def /mgstate 7 def 300 dict begin ";
  EXPECT_EQ(convert(write(L"job", taken + "showpage\n"), m_limits), 1);
  EXPECT_EQ(convert(write(L"job", taken + "save showpage restore quit\n"), m_limits), 1);
  EXPECT_EQ(errorFor(taken + "showpage nosuch\n").code(), ExitCode::kPostScript);
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\nshowpage systemdict /quit get exec\n").text(),
            L"Ghostscript ended before the end of the document was reached.");
}

TEST_F(ConvertTest, CountsOfDocumentsThatMeanItWellAreNotTakenTooSeriously) {
  // Two on a sheet; a header that was never right; more than announced; one document behind the other.
  std::string twoUp = announced(4);
  twoUp.insert(twoUp.find("%%Page: 1"),
               "/n 0 def /real /showpage load def /showpage { /n n 1 add def n 2 mod 0 eq { real } if } def\n");
  EXPECT_EQ(convert(write(L"job", twoUp), m_limits), 2);
  EXPECT_EQ(convert(write(L"job", "%!PS-Adobe-3.0\n%%Pages: 9\nshowpage\n%%EOF\n"), m_limits), 1);
  EXPECT_EQ(convert(write(L"job", "%!PS-Adobe-3.0\n%%Pages: 1\n%%Page: 1 1\nshowpage showpage\n%%EOF\n"), m_limits), 2);
  EXPECT_EQ(convert(write(L"job", announced(2) + announced(1)), m_limits), 3);
}

TEST_F(ConvertTest, WhatDriversAppendBehindTheDocumentIsNoError) {
  EXPECT_EQ(convert(write(L"job", announced(2) + "\x04"), m_limits), 2);
  EXPECT_EQ(convert(write(L"job", announced(2) + "\x1b%-12345X@PJL EOJ\r\n\x1b%-12345X"), m_limits), 2);
}

TEST_F(ConvertTest, EarlierPdfOfTheSameNameIsGoneAfterAFailure) {
  std::ofstream(std::filesystem::path(m_folder + L"\\job.pdf")) << "old";
  EXPECT_EQ(errorFor("%!PS-Adobe-3.0\nnosuchname\n").code(), ExitCode::kPostScript);
}

TEST_F(ConvertTest, AFileThatTookTheNameOfThePdfMeanwhileIsReplaced) {
  const JobPaths paths = write(L"job", kTwoPages);
  const ImportSeams seams;
  MoveFileExWSeam.watch = [&](LPCWSTR, LPCWSTR to, DWORD) {
    if (paths.output == to) std::ofstream(std::filesystem::path(to)) << "somebody else's";
  };
  EXPECT_EQ(convert(paths, m_limits), 2);
  EXPECT_EQ(countPdfPages(paths.output).count, 2);
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
  const std::string folder = ghostscriptPath(m_folder);
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
  EXPECT_EQ(countPdfPages(good.output).count, 2);
  EXPECT_EQ(run(program),
            "1 ps2pdf: Usage: ps2pdf.exe \"<file.ps>\" writes <file.pdf> beside it; the name must end in \".ps\".\r\n");
  const JobPaths wrong = write(L"wrong", "%!PS-Adobe-3.0\nnosuchname\n");
  EXPECT_EQ(run(program + " \"" + std::filesystem::path(wrong.input).string() + "\"").substr(0, 46),
            "5 ps2pdf: Ghostscript: undefined in nosuchname");
}

}  // namespace
}  // namespace mg::converter
