#pragma once

#include "corvane/base/text.h"
#include "protocol/job_record.h"

#include <array>
#include <nlohmann/json.hpp>

namespace protocol {

// The words for the stages of a job, as they stand in JSON and before their times.
constexpr const char* wordOf(JobStage stage) {
  switch (stage) {
    case kCollecting:
      return "collecting";
    case kSending:
      return "sending";
    case kTaking:
      return "taking";
    case kPaper:
      break;
  }
  return "paper";
}
inline constexpr std::array kStages = {kCollecting, kSending, kTaking, kPaper};

// The record of a job as administration tools and the log of jobs give it. Of a text that is no proper Unicode the JSON
// may be no UTF-8: dump it with error_handler_t::replace.
inline nlohmann::ordered_json jobJson(const JobRecord& job) {
  using Json = nlohmann::ordered_json;
  const auto text = [](std::wstring_view words) { return Json(corvane::toUtf8(words)); };
  Json stages;
  for (const JobStage stage : kStages)
    stages[wordOf(stage)] = job.milliseconds[stage] == JobRecord::kNotReached ? Json() : Json(job.milliseconds[stage]);
  return {{"job", job.number},
          {"state", text(wordOf(job.state))},
          {"server", text(job.server)},
          {"user", text(job.user)},
          {"session", job.session},
          {"printer", text(job.printer)},
          {"document", text(job.document)},
          {"spoolerJob", text(job.spoolerJob)},
          {"process", job.process},
          {"copies", job.copies},
          {"pages", job.pages},
          {"bytes", job.bytes},
          {"began", text(job.began)},
          {"ended", job.ended.empty() ? Json() : text(job.ended)},
          {"milliseconds", stages},
          {"cause", text(job.cause)},
          {"remedy", text(job.remedy)}};
}

}  // namespace protocol
