#pragma once

#include "corvane/base/text.h"
#include "protocol/job_record.h"

#include <array>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

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

// The record of a job as administration tools and the log of jobs give it: a JSON object on one line, with more members
// at its end where there are some (",\"name\":value"). What is no proper Unicode is replaced. It is made as text,
// because the library's objects take memory in their destructors, where a server that has none could only end.
inline std::string jobText(const JobRecord& job, std::string_view more = {}) {
  using Json = nlohmann::ordered_json;
  const auto text = [](std::wstring_view words) {
    return Json(corvane::toUtf8(words)).dump(-1, ' ', false, Json::error_handler_t::replace);
  };
  std::string stages;
  for (const JobStage stage : kStages) {
    const int time = job.milliseconds[stage];
    stages += fmt::format("{}\"{}\":{}", stages.empty() ? "" : ",", wordOf(stage),
                          time == JobRecord::kNotReached ? "null" : std::to_string(time));
  }
  return fmt::format(
      R"({{"job":{},"state":{},"server":{},"user":{},"session":{},"printer":{},"document":{},"spoolerJob":{},)"
      R"("process":{},"copies":{},"pages":{},"bytes":{},"began":{},"ended":{},"milliseconds":{{{}}},"cause":{},)"
      R"("remedy":{}{}}})",
      job.number, text(wordOf(job.state)), text(job.server), text(job.user), job.session, text(job.printer),
      text(job.document), text(job.spoolerJob), job.process, job.copies, job.pages, job.bytes, text(job.began),
      job.ended.empty() ? "null" : text(job.ended), stages, text(job.cause), text(job.remedy), more);
}

}  // namespace protocol
