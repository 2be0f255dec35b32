#include "admin/sessions/application_server.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

protocol::Notice jobNotice() {
  protocol::Notice notice;
  notice.kind = L"job";
  notice.values = {{L"job", L"3"},         {L"printer", L"Laser"},    {L"process", L"99"},
                   {L"result", L"failed"}, {L"cause", L"No client."}, {L"remedy", L"Start it."}};
  return notice;
}

TEST(AwaitedJob, IsTheOneWithItsNumberAndPrinter) {
  EXPECT_TRUE((AwaitedJob{3, L"Laser", 0}.isOf(jobNotice())));
  EXPECT_FALSE((AwaitedJob{4, L"Laser", 0}.isOf(jobNotice())));
  EXPECT_FALSE((AwaitedJob{3, L"Ink", 0}.isOf(jobNotice())));
}

TEST(AwaitedJob, OfAProcessIsNotThatOfAnotherOne) {
  EXPECT_TRUE((AwaitedJob{3, L"Laser", 99}.isOf(jobNotice())));
  EXPECT_FALSE((AwaitedJob{3, L"Laser", 98}.isOf(jobNotice())));
}

TEST(AwaitedJob, IsNoOtherKindOfNotice) {
  protocol::Notice notice = jobNotice();
  notice.kind = L"session";
  EXPECT_FALSE((AwaitedJob{3, L"Laser", 0}.isOf(notice)));
}

TEST(JobOutcome, IsPrintedWhenItWasDeliveredOrShown) {
  protocol::Notice notice = jobNotice();
  EXPECT_FALSE(JobOutcome::of(notice).isPrinted);
  EXPECT_EQ(JobOutcome::of(notice).cause, L"No client.");
  EXPECT_EQ(JobOutcome::of(notice).remedy, L"Start it.");
  for (const wchar_t* result : {L"delivered", L"shown"}) {
    notice.values[3].second = result;
    EXPECT_TRUE(JobOutcome::of(notice).isPrinted);
  }
}

}  // namespace
}  // namespace admin
