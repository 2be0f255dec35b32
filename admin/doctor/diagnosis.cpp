#include "admin/doctor/diagnosis.h"

#include "corvane/records/exception.h"
#include "programs/text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {

Diagnosis::Result Diagnosis::look(const std::function<std::string()>& examination) {
  try {
    return {true, examination(), ""};
  } catch (const Failure& failure) {
    return {false, failure.what(), failure.remedy()};
  } catch (const CS_Exception& failure) {
    return {false, programs::describe(failure), ""};
  } catch (const std::exception& failure) {
    return {false, failure.what(), ""};
  }
}

bool Diagnosis::examine(const std::string& name, const std::function<std::string()>& examination,
                        const FindRepair& findRepair) {
  Json repairs = Json::array();
  Result result = look(examination);
  show(name, result);
  // A repair may bring the next fault to light. One that changes nothing is not made twice.
  for (std::string last; !result.isWell && m_ask && findRepair;) {
    std::optional<Repair> found;
    const Result search = look([&] {
      found = findRepair();
      return std::string();
    });
    if (!search.isWell || !found || found->what == last || !repair(*found, repairs)) break;
    last = found->what;
    result = look(examination);
    show(name, result);
  }
  note(name, result, repairs);
  return result.isWell;
}

bool Diagnosis::repair(const Repair& repair, Json& repairs) {
  if (!m_ask(repair.what)) {
    showBelow(fmt::format("left as it is, not done: {}", repair.what));
    repairs.push_back({{"what", repair.what}, {"outcome", "declined"}});
    return false;
  }
  const Result done = look([&] {
    repair.act();
    return std::string();
  });
  if (!done.isWell) {
    showBelow(fmt::format("could not {}: {}", repair.what, done.text));
    if (!done.remedy.empty()) showBelow(done.remedy);
    repairs.push_back({{"what", repair.what}, {"outcome", "failed"}, {"cause", done.text}, {"remedy", done.remedy}});
    return false;
  }
  showBelow(fmt::format("done: {}", repair.what));
  repairs.push_back({{"what", repair.what}, {"outcome", "done"}});
  return true;
}

void Diagnosis::skip(const std::string& name, const std::string& why) {
  const Result result{false, fmt::format("not checked: {}", why), "Correct that and run this again."};
  show(name, result);
  note(name, result, Json::array());
}

void Diagnosis::leaveOut(const std::string& name, const std::string& why) {
  m_output.line(fmt::format("{}{}: skipped: {}", m_hasMarks ? "- " : "left    ", name, why));
  m_checks.push_back({{"name", name}, {"leftOut", why}});
}

void Diagnosis::show(const std::string& name, const Result& result) {
  const char* const mark = m_hasMarks ? "\xE2\x9C\x93 " : "ok      ";
  const char* const cross = m_hasMarks ? "\xE2\x9C\x97 " : "FAILED  ";
  m_output.line(fmt::format("{}{}: {}", result.isWell ? mark : cross, name, result.text));
  if (!result.remedy.empty()) showBelow(result.remedy);
}

void Diagnosis::showBelow(const std::string& text) {
  m_output.line(std::string(m_hasMarks ? 2 : 8, ' ') + text);
}

void Diagnosis::note(const std::string& name, const Result& result, const Json& repairs) {
  Json check = result.isWell ? Json{{"name", name}, {"ok", true}, {"found", result.text}}
                             : Json{{"name", name}, {"ok", false}, {"cause", result.text}, {"remedy", result.remedy}};
  if (!repairs.empty()) check["repairs"] = repairs;
  if (!result.isWell) ++m_failed;
  m_checks.push_back(std::move(check));
}

void Diagnosis::conclude(const std::string& remark) {
  m_output.line(isWell() ? "nothing is wrong" : fmt::format("{} of {} checks failed", m_failed, m_checks.size()));
  Json facts = {{"ok", isWell()}, {"checks", m_checks}};
  if (!remark.empty()) {
    m_output.line(remark);
    facts["remark"] = remark;
  }
  m_output.facts(facts);
}

}  // namespace admin
