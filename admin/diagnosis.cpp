#include "admin/diagnosis.h"

#include "corvane/exception.h"
#include "programs/failure.h"

namespace admin {

bool Diagnosis::examine(const std::string& name, const std::function<std::string()>& examination) {
  try {
    say(true, name, examination(), "");
    return true;
  } catch (const Failure& failure) {
    say(false, name, failure.what(), failure.remedy());
  } catch (const CS_Exception& failure) {
    say(false, name, programs::describe(failure), "");
  } catch (const std::exception& failure) {
    say(false, name, failure.what(), "");
  }
  return false;
}

void Diagnosis::skip(const std::string& name, const std::string& why) {
  say(false, name, "not examined: " + why, "Put that right and run this again.");
}

void Diagnosis::say(bool isWell, const std::string& name, const std::string& text, const std::string& remedy) {
  if (!isWell) ++m_failed;
  const std::string mark =
      m_hasMarks ? (isWell ? "\xE2\x9C\x93 " : "\xE2\x9C\x97 ") : (isWell ? "ok      " : "FAILED  ");
  m_output.line(mark + name + ": " + text);
  if (!remedy.empty()) m_output.line(std::string(m_hasMarks ? 2 : 8, ' ') + remedy);
  Json check;
  check["name"] = name;
  check["ok"] = isWell;
  check[isWell ? "found" : "cause"] = text;
  if (!isWell) check["remedy"] = remedy;
  m_checks.push_back(check);
}

void Diagnosis::conclude() {
  const std::string all = std::to_string(m_checks.size());
  m_output.line(isWell() ? "all " + all + " examinations are well"
                         : std::to_string(m_failed) + " of " + all + " examinations failed");
  m_output.facts({{"ok", isWell()}, {"checks", m_checks}});
}

}  // namespace admin
