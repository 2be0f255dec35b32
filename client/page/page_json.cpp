#include "client/page/page_json.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>

namespace printclient {
namespace {

using nlohmann::json;

// In the order of JobStage.
constexpr std::array<const char*, 10> kStageWords = {"arriving", "handing-over", "waiting", "printing", "stopped",
                                                     "printed",  "handed-on",    "failed",  "canceled", "unknown"};

std::int64_t millisecondsOf(BoardJob::Clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

json jsonOf(const BoardJob& job) {
  return {{"number", job.number},
          {"title", job.title},
          {"printer", job.printer},
          {"copies", job.copies},
          {"stage", kStageWords[static_cast<std::size_t>(job.stage)]},
          {"isOver", isOver(job.stage)},
          {"bytes", job.bytes},
          {"where", job.where},
          {"cause", job.cause},
          {"remedy", job.remedy},
          {"isCanceling", job.isCanceling},
          {"isAgain", job.isAgain},
          {"kept", job.kept},
          {"begun", millisecondsOf(job.begun)},
          {"changed", millisecondsOf(job.changed)}};
}

}  // namespace

std::string pageJson(const JobBoard::News& news) {
  json all = {{"count", news.count}, {"jobs", json::array()}};
  for (const BoardJob& job : news.jobs)
    all["jobs"].push_back(jsonOf(job));
  if (news.order) all["order"] = *news.order;
  if (news.printers) {
    all["printers"] = json::array();
    for (const BoardPrinter& printer : *news.printers)
      all["printers"].push_back({{"name", printer.name}, {"place", printer.place}, {"isDefault", printer.isDefault}});
  }
  if (news.servers) {
    all["servers"] = json::array();
    for (const BoardServer& server : *news.servers)
      all["servers"].push_back({{"name", server.name}, {"state", server.state}, {"isConnected", server.isConnected}});
  }
  return all.dump(-1, ' ', true, json::error_handler_t::replace);
}

}  // namespace printclient
