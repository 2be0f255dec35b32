#include "protocol/paper_news.h"

#include "tests/support/protocol/wire_bytes.h"

#include <gtest/gtest.h>

namespace protocol {
namespace {

TEST(PaperNews, HasItsNumberAndItsBytesOnTheWireAndComesBack) {
  EXPECT_EQ(static_cast<int>(PaperNews::kNumber), 23);
  const PaperNews news{L"L", L"J", L"", PaperState::kStopped, L"C", L"R"};
  EXPECT_EQ(tests::hexOf(news), tests::hex("74 01000000 4c00 74 01000000 4a00 74 00000000 69 03000000 "
                                           "74 01000000 4300 74 01000000 5200"));
  const PaperNews back = tests::readBack(news);
  EXPECT_EQ(back.printer, L"L");
  EXPECT_EQ(back.job, L"J");
  EXPECT_EQ(back.document, L"");
  EXPECT_EQ(back.state, PaperState::kStopped);
  EXPECT_EQ(back.cause, L"C");
  EXPECT_EQ(back.remedy, L"R");
}

TEST(PaperState, EachHasItsWordAndOthersAreUnknown) {
  const wchar_t* const words[] = {L"waiting", L"printing", L"stopped",   L"canceled",
                                  L"aborted", L"printed",  L"handed on", L"unknown"};
  int number = 0;
  for (const wchar_t* word : words) {
    EXPECT_STREQ(wordOf(static_cast<PaperState>(++number)), word);
    EXPECT_EQ(paperStateOf(word), static_cast<PaperState>(number));
    EXPECT_EQ(isFinal(static_cast<PaperState>(number)), number > 3);
  }
  for (const int other : {0, 9, -1})
    EXPECT_STREQ(wordOf(static_cast<PaperState>(other)), L"unknown");
  EXPECT_EQ(paperStateOf(L""), PaperState::kUnknown);
}

}  // namespace
}  // namespace protocol
