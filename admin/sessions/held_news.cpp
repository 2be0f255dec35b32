#include "admin/sessions/held_news.h"

#include "admin/sessions/held_jobs.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "protocol/job_record.h"
#include "protocol/names.h"

#include <cstdlib>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using programs::oneLine;

// What stands behind the words for the job; the cause and what to do are sentences.
std::string wordsFor(protocol::JobState state, const std::string& why) {
  switch (state) {
    case protocol::JobState::kHeld:
      return why.empty() ? "is held until its print client is back" : "is held: " + why;
    case protocol::JobState::kDelivered:
      return "was held, and has been delivered";
    case protocol::JobState::kCanceled:
      return "was held, and is canceled" + (why.empty() ? "" : ": " + why);
    default:
      return "was held, and is not printed" + (why.empty() ? "" : ": " + why);
  }
}

}  // namespace

void HeldNews::see(const protocol::ServerStatus& facts, const Ask& ask) {
  const Run run{facts.process, facts.since};
  if (!m_run) {
    m_run = run;
    m_after = ask(-1).latest;
    return;
  }
  if (*m_run != run) m_after = 0;  // another server, whose notices are all new
  m_run = run;
  if (!m_hasToldPresent) tellPresent(facts);
  m_hasToldPresent = true;
  const protocol::Notices::Answer news = ask(m_after);
  tellMissing(news.latest - m_after - static_cast<int>(news.notices.size()));
  for (const protocol::Notice& notice : news.notices) {
    if (notice.kind == protocol::kHeldNotice) tell(notice);
  }
  m_after = news.latest;
}

void HeldNews::tellPresent(const protocol::ServerStatus& facts) {
  if (!facts.held) return;
  for (const protocol::HeldForSession& held : facts.held->list) {
    m_output.line(fmt::format("session {}: {}", held.session, heldText(held)));
    Json event{{"event", "holding"}, {"session", held.session}};
    event.update(heldJson(facts, held.session));
    m_output.event(event);
  }
}

void HeldNews::tell(const protocol::Notice& notice) {
  const protocol::JobState state = protocol::jobStateOf(notice.value(L"state"));
  const std::wstring cause = notice.value(L"cause"), remedy = notice.value(L"remedy");
  const std::string why = oneLine(cause) + (cause.empty() || remedy.empty() ? "" : " ") + oneLine(remedy);
  m_output.line(fmt::format("session {}: job {} on {} {}", oneLine(notice.value(L"session")),
                            oneLine(notice.value(L"job")), programs::quoted(notice.value(L"printer")),
                            wordsFor(state, why)));
  m_output.event({{"event", "held job"},
                  {"session", std::atoi(corvane::toUtf8(notice.value(L"session")).c_str())},
                  {"job", textValue(notice.value(L"job"))},
                  {"printer", textValue(notice.value(L"printer"))},
                  {"state", textValue(notice.value(L"state"))},
                  {"cause", textValue(cause)},
                  {"remedy", textValue(remedy)}});
}

void HeldNews::tellMissing(int count) {
  if (count <= 0) return;
  m_output.line(
      fmt::format("{} of the server's notices {} gone before this looked: mgprintmon jobs says what became of "
                  "all jobs",
                  count, count == 1 ? "was" : "were"));
  m_output.event({{"event", "missed"}, {"notices", count}});
}

}  // namespace admin
