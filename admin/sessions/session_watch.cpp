#include "admin/sessions/session_watch.h"

#include "admin/base/failure.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "programs/text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {

namespace {

// One line; what several printers need is said once.
std::string wordsFor(const std::vector<RefusedPrinter>& refused) {
  std::string words;
  for (std::size_t i = 0; i < refused.size(); ++i) {
    const bool isLast = i + 1 == refused.size();
    words += refused[i].why;
    if (isLast || refused[i + 1].remedy != refused[i].remedy) {
      words += fmt::format(". {}{}", refused[i].remedy, isLast ? "" : " ");
    } else {
      words += "; ";
    }
  }
  return words;
}

}  // namespace

void SessionWatch::see(const protocol::ServerStatus& facts, Clock::time_point now) {
  if (m_isAway) {
    m_isAway = false;
    m_output.line("the application server is back");
    m_output.event({{"event", "server back"}});
  }
  std::set<int> absent = m_up;
  for (const protocol::ListedSession& session : facts.sessions) {
    if (isTestSession(session.number)) continue;
    if (session.isConnected) {
      absent.erase(session.number);
      m_goneSince.erase(session.number);
      keepUp(session);
    } else {
      absent.insert(session.number);
      m_refused.erase(session.number);  // the next client must be informed again
    }
  }
  for (const int session : absent)
    keepDown(session, now);
}

void SessionWatch::seeNothing(const std::string& why) {
  // Without the server it is unknown which clients are connected, so none counts as gone.
  m_goneSince.clear();
  if (m_isAway) return;
  m_isAway = true;
  m_output.line(fmt::format("{}; waiting for it", why));
  m_output.event({{"event", "server away"}, {"why", why}});
}

void SessionWatch::keepUp(const protocol::ListedSession& session) try {
  const SessionChange change = m_actions.up(session);
  m_up.insert(session.number);
  tell("up", session.number, change);
  tellDefault(session, change);
  trouble(session.number, wordsFor(change.refused));
  tellRefused(session.number, change.refused);
} catch (const Failure& failure) {
  trouble(session.number,
          fmt::format("session {} cannot be brought up: {}. {}", session.number, failure.what(), failure.remedy()));
}

void SessionWatch::keepDown(int session, Clock::time_point now) try {
  const Clock::time_point since = m_goneSince.try_emplace(session, now).first->second;
  if (now - since < m_grace) return;
  if (m_actions.isUp(static_cast<unsigned>(session))) {
    tell("down", session, m_actions.down(static_cast<unsigned>(session)));
  }
  m_up.erase(session);
  m_defaults.erase(session);
  trouble(session, "");
} catch (const Failure& failure) {
  trouble(session, fmt::format("session {} cannot be taken down: {}. {}", session, failure.what(), failure.remedy()));
}

void SessionWatch::tellRefused(int session, const std::vector<RefusedPrinter>& refused) {
  std::vector<RefusedPrinter>& told = m_refused[session];
  if (refused == told) return;
  try {
    for (const RefusedPrinter& printer : refused)
      m_actions.tellRefusal(session, printer);
    told = refused;
  } catch (const Failure&) {
    // The server has gone; the next query reports that, and the refusals are sent when it is back.
  }
}

void SessionWatch::tellDefault(const protocol::ListedSession& session, const SessionChange& change) {
  std::wstring name = defaultPrinterOf(session);
  if (!change.isUp(name)) name.clear();
  std::wstring& last = m_defaults[session.number];
  if (name == last) return;
  last = name;
  if (name.empty()) return;
  m_output.line(fmt::format("session {}: the client's default printer is {}", session.number, programs::quoted(name)));
  m_output.event({{"event", "default"}, {"session", session.number}, {"printer", textValue(name)}});
}

void SessionWatch::trouble(int session, const std::string& text) {
  std::string& last = m_troubles[session];
  if (text == last) return;
  last = text;
  if (text.empty()) return;
  m_output.line(text);
  m_output.event({{"event", "trouble"}, {"session", session}, {"what", text}});
}

void SessionWatch::tell(const char* event, int session, const SessionChange& change) {
  if (change.isNothing()) return;
  SessionChange news = change;
  news.kept.clear();
  news.refused.clear();
  sayChange(session, news, m_output);
  Json facts = changeJson(session, change);
  facts["event"] = event;
  m_output.event(facts);
}

}  // namespace admin
