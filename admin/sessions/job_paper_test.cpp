#include "admin/sessions/job_paper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace admin {
namespace {

using protocol::PaperState;
using ::testing::ElementsAre;

protocol::Notice paper(int number, const wchar_t* job, const wchar_t* state, const wchar_t* document = L"letter") {
  protocol::Notice notice;
  notice.number = number;
  notice.kind = L"paper";
  notice.values = {{L"job", job}, {L"printer", L"Laser"}, {L"document", document}, {L"state", state}};
  return notice;
}

TEST(JobPaper, IsOfTheJobWithItsNumberAndPrinterWhateverTheProcess) {
  EXPECT_TRUE(isPaperOf({3, L"Laser", 99}, paper(1, L"3", L"printed")));
  EXPECT_FALSE(isPaperOf({4, L"Laser", 0}, paper(1, L"3", L"printed")));
  EXPECT_FALSE(isPaperOf({3, L"Ink", 0}, paper(1, L"3", L"printed")));
  protocol::Notice other = paper(1, L"3", L"printed");
  other.kind = L"job";
  EXPECT_FALSE(isPaperOf({3, L"Laser", 0}, other));
}

TEST(JobPaper, SaysWhatHasBecomeOfTheJob) {
  protocol::Notice notice = paper(1, L"3", L"stopped");
  notice.values.emplace_back(L"cause", L"The printer has\nno paper.");
  notice.values.emplace_back(L"remedy", L"Put paper in.");
  EXPECT_EQ(JobPaper::of(notice), (JobPaper{PaperState::kStopped, L"The printer has\nno paper.", L"Put paper in."}));
  EXPECT_EQ(JobPaper::of(notice).text(), "is held up: The printer has no paper.");
  const std::pair<const wchar_t*, const char*> others[] = {
      {L"waiting", "waits in the printer's queue"},
      {L"printing", "is being printed"},
      {L"canceled", "was canceled at the printer"},
      {L"aborted", "was not printed"},
      {L"printed", "was printed"},
      {L"handed on", "is where the print client puts it, in a folder or with a program; of paper nobody tells there"},
      {L"unknown", "is not followed any more"},
      {L"of another version", "is not followed any more"}};
  for (const auto& [word, text] : others)
    EXPECT_EQ(JobPaper::of(paper(1, L"3", word)).text(), text);
}

TEST(JobPaper, OfEachJobTheLatestCountsAndWhatGoesToNoPaperDoesNot) {
  const std::vector<protocol::Notice> all = {paper(1, L"1", L"printing"),
                                             paper(2, L"2", L"printing"),
                                             paper(3, L"3", L"handed on"),
                                             paper(4, L"1", L"printed"),
                                             paper(5, L"1", L"printed", L"another"),
                                             paper(6, L"2", L"stopped")};
  const auto numbers = [&all](std::size_t most) {
    std::vector<int> found;
    for (const protocol::Notice& notice : latestPaper(all, most))
      found.push_back(notice.number);
    return found;
  };
  EXPECT_THAT(numbers(10), ElementsAre(4, 5, 6));
  EXPECT_THAT(numbers(2), ElementsAre(5, 6));
  EXPECT_THAT(numbers(0), ElementsAre());
}

}  // namespace
}  // namespace admin
