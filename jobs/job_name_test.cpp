#include "jobs/temporary_files.h"
#include "ports/port_records.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::wstring jobName(const std::wstring& printer, DWORD job) {
  return mg::buildJobName(printer.c_str(), job).wide();
}

TEST(JobName, IsThePrintersNameAndTheNumber) {
  EXPECT_EQ(jobName(L"Laser-2 (session 5)", 3), L"Laser-2 (session 5) - Job #3");
}

TEST(JobName, ReplacesEveryCharacterThatAFileNameCannotHave) {
  EXPECT_EQ(jobName(L"\\\\srv\\HP+1", 17), L"--srv-HP-1 - Job #17");
  EXPECT_EQ(jobName(L"\\/:*?\"<>|@+", 1), L"----------- - Job #1");
  EXPECT_EQ(jobName(L"\\:*", 4294967295u), L"--- - Job #4294967295");
}

TEST(JobName, KeepsEveryOtherCharacter) {
  EXPECT_EQ(jobName(L"a'b;c=d,e.f #%&(){}[]~!\u00E4\u4E2D", 1), L"a'b;c=d,e.f #%&(){}[]~!\u00E4\u4E2D - Job #1");
  EXPECT_EQ(jobName(L"\xD800 \xDFFF\xFFFF\t", 0), L"\xD800 \xDFFF\xFFFF\t - Job #0");
}

TEST(JobName, HoldsTheLongestNameThatAPortHolds) {
  const std::wstring longest(kPortNameSize - 1, L'x');
  EXPECT_EQ(jobName(longest, 2), longest + L" - Job #2");
}

// Only files of such a name are ever removed as what a killed process has left.
TEST(JobName, IsKnownInTheNamesOfTheJobsFiles) {
  for (const std::wstring& printer :
       {std::wstring(L"\\\\srv\\HP+1"), std::wstring(L"\\/:*?\"<>|@+"), std::wstring(L"\u4E2D ~0123456789abcdef"),
        std::wstring(kPortNameSize - 1, L'x')}) {
    UTL_String path;
    mg::appendTemporaryPath(path, mg::TemporaryDirectory(), mg::buildJobName(printer.c_str(), 17), 90210, L".ps");
    const std::wstring text = path.wide();
    EXPECT_TRUE(mg::isTemporaryName(std::wstring_view(text).substr(text.rfind(L'\\') + 1))) << text;
  }
}

}  // namespace
