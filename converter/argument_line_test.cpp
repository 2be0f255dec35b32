#include "converter/host_shell.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <shellapi.h>

namespace mg::converter {
namespace {

TEST(ArgumentLine, WordsWithoutBlanksAreNotQuoted) {
  EXPECT_EQ(argumentLine({L"a", L"-b=c\\d"}), L"a -b=c\\d");
}

TEST(ArgumentLine, WindowsTakesTheLineApartIntoTheSameWords) {
  const std::vector<std::wstring> words = {
      L"C:\\Program Files\\gs.exe",  L"",         L"a b\\", L"say \"this\"", L"\\\\\"",
      L"<</.Lock true>> setpagedev", L"tab\there"};
  int count = 0;
  wchar_t** const apart = CommandLineToArgvW(argumentLine(words).c_str(), &count);
  ASSERT_NE(apart, nullptr);
  EXPECT_EQ(std::vector<std::wstring>(apart, apart + count), words);
  LocalFree(apart);
}

}  // namespace
}  // namespace mg::converter
