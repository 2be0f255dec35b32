#include "server/paper_notice.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

using protocol::PaperState;
using Values = std::vector<std::pair<std::wstring, std::wstring>>;

protocol::PaperNews news(PaperState state) {
  return {L"Laser", L"Laser (session 5) - Job #17", L"letter", state, L"", L""};
}

TEST(PaperNotice, SaysWhichJobOfWhichPrinterAndSessionAndWhatHasBecomeOfIt) {
  auto stopped = news(PaperState::kStopped);
  stopped.cause = L"The printer has no paper.";
  stopped.remedy = L"Put paper in.";
  const CS_Notice notice = paperNotice(stopped, 5, L"Laser (session 5)");
  EXPECT_EQ(notice.kind, L"paper");
  EXPECT_EQ(notice.line,
            L"Job 17 \"letter\" on \"Laser (session 5)\" (session 5) is held up at the printer: The printer has no "
            L"paper. Put paper in.");
  EXPECT_EQ(notice.values, (Values{{L"job", L"17"},
                                   {L"printer", L"Laser (session 5)"},
                                   {L"document", L"letter"},
                                   {L"session", L"5"},
                                   {L"state", L"stopped"},
                                   {L"cause", L"The printer has no paper."},
                                   {L"remedy", L"Put paper in."}}));
}

TEST(PaperNotice, HasALineAndAWordForEachState) {
  const std::pair<const wchar_t*, const wchar_t*> expected[] = {
      {L"waits in the printer's queue.", L"waiting"},
      {L"is being printed.", L"printing"},
      {L"is held up at the printer.", L"stopped"},
      {L"was canceled at the printer.", L"canceled"},
      {L"was not printed.", L"aborted"},
      {L"was printed.", L"printed"},
      {L"is where the print client puts it.", L"handed on"},
      {L"is not followed any more.", L"unknown"},
      {L"is not followed any more.", L"unknown"},  // a number that nobody knows
  };
  int number = 0;
  for (const auto& [line, word] : expected) {
    const CS_Notice notice = paperNotice(news(static_cast<PaperState>(++number)), 5, L"Laser");
    EXPECT_EQ(notice.line, std::wstring(L"Job 17 \"letter\" on \"Laser\" (session 5) ") + line);
    EXPECT_EQ(notice.values.back(), (std::pair<std::wstring, std::wstring>(L"state", word)));
  }
}

TEST(PaperNotice, CutsWhatTheClientSays) {
  auto lengthy = news(PaperState::kAborted);
  lengthy.document = lengthy.cause = lengthy.remedy = std::wstring(5000, L'x');
  const CS_Notice notice = paperNotice(lengthy, 5, L"Laser");
  EXPECT_EQ(notice.values[2].second.size(), kMaxPaperText);
  EXPECT_EQ(notice.values[5].second.size(), kMaxPaperText);
  EXPECT_EQ(notice.values[6].second.size(), kMaxPaperText);
  EXPECT_LT(notice.line.size(), 4 * kMaxPaperText);
}

TEST(PaperNotice, TakesTheSpoolersNumberFromTheEndOfTheJobsName) {
  EXPECT_EQ(jobNumberOf(L"a - Job #1 - Job #23"), L"23");
  EXPECT_EQ(jobNumberOf(L"Laser - Job #4294967295"), L"4294967295");
  for (const wchar_t* name : {L"", L"#", L"Job", L"Job #", L"Job #-1", L"Job #1 ", L"Job #12345678901"})
    EXPECT_EQ(jobNumberOf(name), L"") << name;
  EXPECT_EQ(paperNotice({L"L", L"j", L"d", PaperState::kPrinted, L"", L""}, 5, L"L").line,
            L"Job ? \"d\" on \"L\" (session 5) was printed.");
}

}  // namespace
}  // namespace aps
