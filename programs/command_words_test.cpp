#include "programs/command_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace programs {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

TEST(CommandWords, ALineHasTheWordsThatItWasMadeOf) {
  const std::vector<std::wstring> words = {
      L"C:\\Program Files\\a.exe", L"--keys", L"C:\\a folder\\", L"say \"this\"", L"", L"plain\\"};
  EXPECT_THAT(wordsOf(commandLineOf(words)), ElementsAreArray(words));
}

TEST(CommandWords, OnlyAWordThatNeedsItIsQuoted) {
  EXPECT_EQ(commandLineOf({L"C:\\a b\\aps.exe", L"--service", L"x y\\"}),
            L"\"C:\\a b\\aps.exe\" --service \"x y\\\\\"");
}

TEST(CommandWords, AnEmptyLineHasNone) {
  EXPECT_THAT(wordsOf(L""), IsEmpty());
  EXPECT_THAT(wordsOf(L"aps.exe --no-keys"), ElementsAre(L"aps.exe", L"--no-keys"));
}

}  // namespace
}  // namespace programs
