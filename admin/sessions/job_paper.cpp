#include "admin/sessions/job_paper.h"

#include "programs/text.h"
#include "protocol/names.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

const char* phraseOf(protocol::PaperState state) {
  switch (state) {
    case protocol::PaperState::kWaiting:
      return "waits in the printer's queue";
    case protocol::PaperState::kPrinting:
      return "is being printed";
    case protocol::PaperState::kStopped:
      return "is held up";
    case protocol::PaperState::kCanceled:
      return "was canceled at the printer";
    case protocol::PaperState::kAborted:
      return "was not printed";
    case protocol::PaperState::kPrinted:
      return "was printed";
    case protocol::PaperState::kHandedOn:
      return "is where the print client puts it, in a folder or with a program; of paper nobody tells there";
    case protocol::PaperState::kUnknown:
      break;
  }
  return "is not followed any more";
}

bool isSameJob(const protocol::Notice& one, const protocol::Notice& other) {
  return one.value(L"job") == other.value(L"job") && one.value(L"printer") == other.value(L"printer") &&
         one.value(L"document") == other.value(L"document");
}

}  // namespace

JobPaper JobPaper::of(const protocol::Notice& notice) {
  return {protocol::paperStateOf(notice.value(L"state")), notice.value(L"cause"), notice.value(L"remedy")};
}

std::string JobPaper::text() const {
  return fmt::format("{}{}{}", phraseOf(state), cause.empty() ? "" : ": ", programs::oneLine(cause));
}

bool isPaperOf(const AwaitedJob& job, const protocol::Notice& notice) {
  return notice.kind == protocol::kPaperNotice && notice.value(L"job") == std::to_wstring(job.number) &&
         notice.value(L"printer") == job.printer;
}

std::vector<protocol::Notice> latestPaper(const std::vector<protocol::Notice>& notices, std::size_t most) {
  std::vector<protocol::Notice> latest;
  for (auto notice = notices.rbegin(); notice != notices.rend() && latest.size() < most; ++notice) {
    if (notice->kind != protocol::kPaperNotice) continue;
    if (JobPaper::of(*notice).state == protocol::PaperState::kHandedOn) continue;
    const bool isKnown = std::any_of(latest.begin(), latest.end(),
                                     [&notice](const protocol::Notice& later) { return isSameJob(*notice, later); });
    if (!isKnown) latest.push_back(*notice);
  }
  std::reverse(latest.begin(), latest.end());
  return latest;
}

}  // namespace admin
