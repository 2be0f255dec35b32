#include "jobs/temporary_files.h"
#include "tests/support/temporary_folder.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <set>

namespace mg {
namespace {

// Names that somebody may give a printer, by every way that a name can be odd.
const std::wstring kOddNames[] = {
    L"\u65e5\u672c\u8a9e - Job #17",
    L"\u4e2d\u56fd\u8a9e - Job #17",
    L"\uff21\uff22 - Job #17",
    L"AB - Job #17",
    L"\u0394\u03a9 - Job #17",
    L"\u202e\u05d0 - Job #17",
    L"\xD83D\xDDA8 - Job #17",
    L"\xD800 - Job #17",
    L"\xDC00\xD800 - Job #17",
    L"a\nb - Job #17",
    L"\x01\x1f\t - Job #17",
    L"\u0100\u0101 - Job #17",
    L"\u00e4 - Job #17",
    L"a\u0308 - Job #17",
    std::wstring(259, L'\u65e5'),
    L"\u2215\u29f5\uff0f\u2044 - Job #17",
    L"..\u2044..\uff3cx - Job #17",
    L"\uff0a\uff1f\uff02 - Job #17",
    L"aux - Job #17",
    L"~0123456789abcdef - Job #17",
};

std::wstring pathOf(const std::wstring& directory, const std::wstring& name) {
  return directory + fileNameOf(UTL_String(name.c_str())) + L"-90210.ps";
}

TEST(TemporaryPath, EveryNameGivesAFileThatIsOpenedByTheNarrowAndDeletedByTheWidePath) {
  const TemporaryFolder folder;
  for (const std::wstring& name : kOddNames) {
    const UTL_String path(pathOf(folder.directory(), name).c_str());
    std::FILE* file = std::fopen(path.narrow(), "wb");
    ASSERT_NE(file, nullptr) << path.narrow();
    std::fclose(file);
    EXPECT_TRUE(DeleteFileW(path.wide())) << path.narrow();
    EXPECT_TRUE(folder.isEmpty()) << path.narrow();
  }
}

TEST(TemporaryPath, NamesThatDifferGiveFilesThatDiffer) {
  std::set<std::wstring> names;
  for (const std::wstring& name : kOddNames)
    names.insert(fileNameOf(UTL_String(name.c_str())));
  EXPECT_EQ(names.size(), std::size(kOddNames));
}

TEST(TemporaryPath, NoNameLeadsOutOfTheDirectory) {
  for (const std::wstring& name : kOddNames) {
    // Best-fit characters for slashes and stars would be real ones.
    const UTL_String file(fileNameOf(UTL_String(name.c_str())).c_str());
    EXPECT_EQ(std::string(file.narrow()).find_first_of("\\/:*?\"<>|"), std::string::npos) << file.narrow();
  }
}

TEST(TemporaryPath, ANameThatIsReplacedIsBounded) {
  const std::wstring name = fileNameOf(UTL_String(std::wstring(100000, L'\xD800').c_str()));
  EXPECT_EQ(name.size(), kMostKept + 17);
  EXPECT_EQ(name.substr(0, kMostKept + 1), std::wstring(kMostKept, L'_') + L"~");
}

TEST(TemporaryPath, EveryNameThatAJobsFilesHaveIsKnownAsOne) {
  for (const std::wstring& name : kOddNames) {
    const std::wstring job =
        fileNameOf(UTL_String(name.substr(0, name.find(L" - Job")).append(L" - Job #4294967295").c_str()));
    for (const wchar_t* end : {L"-0.ps", L"-2147483647.pdf", L"--2147483648.log", L"--1.ps"})
      EXPECT_TRUE(isTemporaryName(job + end)) << job << end;
  }
  EXPECT_TRUE(isTemporaryName(L" - Job #0-0.ps"));
  EXPECT_TRUE(isTemporaryName(L"a - Job #1 - Job #2-3.ps"));
  EXPECT_TRUE(isTemporaryName(std::wstring(259, L'n') + L" - Job #1-1.ps"));
}

TEST(TemporaryPath, NoOtherNameIsTakenForThatOfAJobsFile) {
  for (const std::wstring& name : {
           std::wstring(L""),
           std::wstring(L".ps"),
           std::wstring(L"letter.ps"),
           std::wstring(L"1-1.ps"),
           std::wstring(L"Laser - Job #17-90210"),
           std::wstring(L"Laser - Job #17-90210.PS"),
           std::wstring(L"Laser - Job #17-90210.txt"),
           std::wstring(L"Laser - Job #17-90210.ps "),
           std::wstring(L"Laser - Job #17-90210.ps.ps"),
           std::wstring(L"Laser - Job #17-.ps"),
           std::wstring(L"Laser - Job #17.ps"),
           std::wstring(L"Laser - Job #17-+1.ps"),
           std::wstring(L"Laser - Job #17-01.ps"),
           std::wstring(L"Laser - Job #17--0.ps"),
           std::wstring(L"Laser - Job #17---1.ps"),
           std::wstring(L"Laser - Job #17-2147483648.ps"),
           std::wstring(L"Laser - Job #17--2147483649.ps"),
           std::wstring(L"Laser - Job #17-99999999999999999999999999.ps"),
           std::wstring(L"Laser - Job #4294967296-1.ps"),
           std::wstring(L"Laser - Job #017-1.ps"),
           std::wstring(L"Laser - Job #-1.ps"),
           std::wstring(L"Laser - Job #-1-1.ps"),
           std::wstring(L"Laser - job #17-1.ps"),
           std::wstring(L"Laser -Job #17-1.ps"),
           std::wstring(L"La+ser - Job #17-1.ps"),
           std::wstring(L"La@ser - Job #17-1.ps"),
           std::wstring(L"La\nser - Job #17-1.ps"),
           std::wstring(260, L'n') + L" - Job #17-1.ps",
           std::wstring(L"~0123456789abcdef-1.ps"),
           std::wstring(L"Laser~0123456789abcdef-1.ps"),
           std::wstring(L"Laser - Job #17~0123456789ABCDEF-1.ps"),
           std::wstring(L"Laser - Job #17~123456789abcdef-1.ps"),
           std::wstring(99, L'n') + L"~0123456789abcdef-1.ps",
           std::wstring(101, L'n') + L"~0123456789abcdef-1.ps",
           std::wstring(99, L'n') + L"+~0123456789abcdef-1.ps",
       }) {
    EXPECT_FALSE(isTemporaryName(name)) << name;
  }
}

}  // namespace
}  // namespace mg
