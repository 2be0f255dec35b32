#include "admin/sessions/held_jobs.h"

#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>

namespace admin {

const protocol::HeldForSession* heldFor(const protocol::ServerStatus& facts, int session) {
  if (!facts.held) return nullptr;
  const auto& list = facts.held->list;
  const auto found = std::find_if(list.begin(), list.end(),
                                  [session](const protocol::HeldForSession& held) { return held.session == session; });
  return found == list.end() ? nullptr : &*found;
}

Json heldJson(const protocol::ServerStatus& facts, int session) {
  if (!facts.held) return {};
  const protocol::HeldForSession* const held = heldFor(facts, session);
  if (held == nullptr) return {{"jobs", 0}, {"bytes", 0}, {"since", nullptr}};
  return {{"jobs", held->jobs}, {"bytes", held->bytes}, {"since", textValue(held->since)}};
}

std::string heldText(const protocol::HeldForSession& held) {
  return fmt::format("{} held, {}, {}since {}", held.jobs == 1 ? "1 job is" : fmt::format("{} jobs are", held.jobs),
                     sizeText(held.bytes), held.jobs == 1 ? "" : "the oldest ", programs::localTime(held.since));
}

std::vector<protocol::HeldForSession> heldForOthers(const protocol::ServerStatus& facts) {
  std::vector<protocol::HeldForSession> others;
  if (!facts.held) return others;
  std::copy_if(facts.held->list.begin(), facts.held->list.end(), std::back_inserter(others),
               [&facts](const protocol::HeldForSession& held) { return facts.session(held.session) == nullptr; });
  return others;
}

}  // namespace admin
