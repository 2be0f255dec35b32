#include "admin/job_outcome.h"

namespace admin {

bool AwaitedJob::isOf(const Notice& notice) const {
  return notice.kind == Notice::kJobNotice && notice.value(L"job") == std::to_wstring(number) &&
         notice.value(L"printer") == printer && (process == 0 || notice.value(L"process") == std::to_wstring(process));
}

JobOutcome JobOutcome::of(const Notice& notice) {
  JobOutcome outcome;
  outcome.result = notice.value(L"result");
  outcome.isPrinted = outcome.result == L"delivered" || outcome.result == L"shown";
  outcome.session = notice.value(L"session");
  outcome.bytes = notice.value(L"bytes");
  outcome.cause = notice.value(L"cause");
  outcome.remedy = notice.value(L"remedy");
  return outcome;
}

}  // namespace admin
