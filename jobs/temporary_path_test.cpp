#include "jobs/temporary_path.h"

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

}  // namespace
}  // namespace mg
