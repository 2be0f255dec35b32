#include "admin/doctor/diagnosis.h"

#include "corvane/records/exception.h"
#include "programs/text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {

bool Diagnosis::examine(const std::string& name, const std::function<std::string()>& examination) {
  try {
    sayWell(name, examination());
    return true;
  } catch (const Failure& failure) {
    sayFailed(name, failure.what(), failure.remedy());
  } catch (const CS_Exception& failure) {
    sayFailed(name, programs::describe(failure), "");
  } catch (const std::exception& failure) {
    sayFailed(name, failure.what(), "");
  }
  return false;
}

void Diagnosis::skip(const std::string& name, const std::string& why) {
  sayFailed(name, fmt::format("not checked: {}", why), "Correct that and run this again.");
}

void Diagnosis::leaveOut(const std::string& name, const std::string& why) {
  m_output.line(fmt::format("{}{}: skipped: {}", m_hasMarks ? "- " : "left    ", name, why));
  m_checks.push_back({{"name", name}, {"leftOut", why}});
}

void Diagnosis::sayWell(const std::string& name, const std::string& found) {
  m_output.line(fmt::format("{}{}: {}", m_hasMarks ? "\xE2\x9C\x93 " : "ok      ", name, found));
  m_checks.push_back({{"name", name}, {"ok", true}, {"found", found}});
}

void Diagnosis::sayFailed(const std::string& name, const std::string& cause, const std::string& remedy) {
  ++m_failed;
  m_output.line(fmt::format("{}{}: {}", m_hasMarks ? "\xE2\x9C\x97 " : "FAILED  ", name, cause));
  if (!remedy.empty()) m_output.line(std::string(m_hasMarks ? 2 : 8, ' ') + remedy);
  m_checks.push_back({{"name", name}, {"ok", false}, {"cause", cause}, {"remedy", remedy}});
}

void Diagnosis::conclude() {
  m_output.line(isWell() ? "nothing is wrong" : fmt::format("{} of {} checks failed", m_failed, m_checks.size()));
  m_output.facts({{"ok", isWell()}, {"checks", m_checks}});
}

}  // namespace admin
