#include "server/launcher.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

TEST(CommandTail, OpensTheWordOfThePortMonitor) {
  EXPECT_EQ(commandTail(LR"_("/PT \"C:\Temp\Preview PDF - Job #1-77.txt\" \"Preview PDF (session 5)\"")_"),
            LR"_(/PT "C:\Temp\Preview PDF - Job #1-77.txt" "Preview PDF (session 5)")_");
}

TEST(CommandTail, HalvesBackslashesBeforeAQuoteOnly) {
  EXPECT_EQ(commandTail(LR"("a\\b\\\"c")"), LR"(a\\b\"c)");
  EXPECT_EQ(commandTail(LR"("a\\")"), LR"(a\)");
}

TEST(CommandTail, LeavesWhatIsNotOneQuotedWord) {
  for (const wchar_t* text : {L"", L"\"", L"/p a.txt", L"\"a\" \"b\"", L"\"a\\\"", L"a\"", L"\"a\"b\""}) {
    EXPECT_EQ(commandTail(text), text);
  }
}

TEST(CommandTail, IsEmptyForAnEmptyWord) {
  EXPECT_EQ(commandTail(L"\"\""), L"");
}

}  // namespace
}  // namespace aps
