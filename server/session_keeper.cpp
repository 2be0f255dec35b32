#include "server/session_keeper.h"

#include "corvane/base/text.h"
#include "corvane/trust/key.h"
#include "programs/text.h"
#include "server/if_possible.h"
#include "server/printer_name.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

namespace aps {
namespace {

using Json = nlohmann::ordered_json;
using std::chrono::seconds;
using std::chrono::system_clock;

constexpr const char* kFormat = "sessions of aps, version 1";

bool hasUtf8(const Printer& printer) {
  for (const auto& text : printer.texts) {
    if (text && corvane::fromUtf8(corvane::toUtf8(*text)) != *text) return false;
  }
  return true;
}

// The file is made as text: the library's objects take memory in their destructors, where a server that has none could
// only end.
std::string quoted(const std::string& utf8) {
  return Json(utf8).dump();
}

std::string textOf(const Printer& printer, bool isWhole) {
  std::string texts;
  for (std::size_t i = 0; i < printer.texts.size(); ++i) {
    const auto& text = printer.texts[i];
    const bool isKept = text && (isWhole || i == 0 || i == protocol::Printer::kDriverText);
    texts += fmt::format("{}{}", i == 0 ? "" : ", ", isKept ? quoted(corvane::toUtf8(*text)) : "null");
  }
  return fmt::format(R"({{"texts": [{}], "flag": {}, "value": {}, "second": {}}})", texts, printer.isDefault,
                     static_cast<int>(printer.format), printer.resolution);
}

std::string textOf(const SessionTable::Status& session, bool isWhole) {
  std::string printers, key;
  for (const Printer& printer : session.printers)
    printers += fmt::format("{}\n    {}", printers.empty() ? "" : ",", textOf(printer, isWhole));
  if (session.key != corvane::Bytes32{})
    key = fmt::format(R"("key": {}, )", quoted(corvane::toUtf8(corvane::toHex(session.key))));
  return fmt::format(R"({{"session": {}, "connected": {}, "since": {}, {}"printers": [{}]}})", session.number,
                     session.connected, std::chrono::duration_cast<seconds>(session.since.time_since_epoch()).count(),
                     key, printers);
}

Printer printerFrom(const Json& json) {
  Printer printer;
  const Json& texts = json.at("texts");
  if (!texts.is_array() || texts.size() != printer.texts.size())
    throw std::runtime_error("a printer without its texts");
  for (std::size_t i = 0; i < printer.texts.size(); ++i) {
    if (!texts[i].is_null()) printer.texts[i] = corvane::fromUtf8(texts[i].get<std::string>());
  }
  printer.isDefault = json.at("flag").get<bool>();
  printer.format = static_cast<protocol::DataFormat>(json.at("value").get<int>());
  printer.resolution = json.at("second").get<int>();
  return printer;
}

SessionTable::Status sessionFrom(const Json& json, system_clock::time_point now) {
  SessionTable::Status session;
  session.number = json.at("session").get<int>();
  const long long latest = std::chrono::duration_cast<seconds>(now.time_since_epoch()).count();
  const long long since = json.at("since").get<long long>();
  // No session has gone in the future, whatever was done to the clock since.
  session.since = system_clock::time_point(seconds(std::clamp(since, 0LL, std::max(latest, 0LL))));
  if (json.at("connected").get<bool>()) session.since = now;
  if (json.contains("key")) {
    const auto key = corvane::fromHex(corvane::fromUtf8(json.at("key").get<std::string>()));
    if (!key) throw std::runtime_error("a session with a mark of its key that is none");
    session.key = *key;
  }
  for (const Json& printer : json.at("printers"))
    session.printers.push_back(printerFrom(printer));
  if (session.number < 1 || session.printers.empty()) throw std::runtime_error("a session without number or printers");
  const std::wstring refusal = printersRefusal(session.printers);
  if (!refusal.empty()) throw std::runtime_error(corvane::toUtf8(refusal));
  return session;
}

}  // namespace

std::string toStateText(const std::vector<SessionTable::Status>& sessions) {
  std::string all;
  for (const SessionTable::Status& session : sessions) {
    if (!std::all_of(session.printers.begin(), session.printers.end(), hasUtf8)) continue;
    for (const bool isWhole : {true, false}) {
      const std::string text = textOf(session, isWhole);
      if (text.size() > kSessionBytes) continue;
      all += fmt::format("{}\n  {}", all.empty() ? "" : ",", text);
      break;
    }
  }
  return fmt::format("{{\"format\": {}, \"sessions\": [{}]}}\n", quoted(kFormat), all);
}

std::vector<SessionTable::Status> fromStateText(const std::string& text, system_clock::time_point now) try {
  const Json json = Json::parse(text);
  if (json.at("format").get<std::string>() != kFormat) throw std::runtime_error("it is of another version");
  std::vector<SessionTable::Status> sessions;
  std::set<int> numbers;
  for (const Json& session : json.at("sessions")) {
    sessions.push_back(sessionFrom(session, now));
    if (!numbers.insert(sessions.back().number).second) throw std::runtime_error("a session is listed twice");
  }
  return sessions;
} catch (const Json::exception& failure) {
  throw std::runtime_error(failure.what());
}

SessionKeeper::SessionKeeper(const std::filesystem::path& file, SessionTable& table, std::shared_ptr<Log> log)
    : m_file(file), m_name(programs::fromPath(file)), m_table(table), m_log(std::move(log)) {
  readFile();
  m_table.onChange([this] {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_changed = true;
    m_wakeUp.notify_all();
  });
  m_thread = std::thread([this] { run(); });
}

void SessionKeeper::readFile() {
  try {
    const auto text = m_file.read();
    if (!text) return;
    auto sessions = fromStateText(*text, std::chrono::system_clock::now());
    const std::size_t count = sessions.size();
    m_table.remember(std::move(sessions));
    m_log->line(fmt::format("sessions restored: {}, from {}", count, m_name));
  } catch (const std::runtime_error& failure) {
    std::string aside = fmt::format("it was set aside as {}.damaged", m_name);
    try {
      m_file.setAside();
    } catch (const std::runtime_error& second) {
      aside = fmt::format("it stays where it is: {}", second.what());
    }
    m_log->failure(
        fmt::format("the earlier sessions are not known because the file {} cannot be used: {}; {}. Each session is "
                    "known again when its print client comes",
                    m_name, failure.what(), aside));
  }
}

void SessionKeeper::run() {
  std::unique_lock<std::mutex> lock(m_lock);
  while (true) {
    m_wakeUp.wait(lock, [this] { return m_changed || m_stopping; });
    if (!m_changed) return;
    const bool isLast = m_stopping;
    m_changed = false;
    lock.unlock();
    writeFile();
    if (isLast) return;
    lock.lock();
    m_wakeUp.wait_for(lock, kPause, [this] { return m_stopping; });
  }
}

void SessionKeeper::writeFile() noexcept {
  try {
    m_file.replace(toStateText(m_table.known()));
    if (m_failed) m_log->line(fmt::format("the sessions are kept in {} again", m_name));
    m_failed = false;
  } catch (const std::exception& failure) {
    if (m_failed) return;
    ifPossible([&] {
      m_log->failure(fmt::format(
          "the sessions are not kept in {}: {}; see that its folder exists and has room. Printing goes on; after a "
          "restart of aps each session is known again when its print client comes",
          m_name, failure.what()));
      m_failed = true;
    });
  }
}

void SessionKeeper::stop() {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_stopping) return;
    m_stopping = true;
    m_wakeUp.notify_all();
  }
  m_thread.join();
}

}  // namespace aps
