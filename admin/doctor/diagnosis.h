#pragma once

#include "admin/base/output.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace admin {

// Runs checks one after the other and shows each result at once: a tick and the finding, or a cross with the cause and,
// on a separate line, the remedy. Belongs to one thread.
class Diagnosis {
 public:
  // With marks: ticks and crosses instead of words.
  Diagnosis(Output& output, bool hasMarks) : m_output(output), m_hasMarks(hasMarks) {}

  // The check returns its finding as text, or throws a Failure. True when it succeeded.
  bool examine(const std::string& name, const std::function<std::string()>& examination);
  // A check that cannot run because another one failed.
  void skip(const std::string& name, const std::string& why);

  // A check that cannot run here and need not: it counts neither as succeeded nor as failed.
  void leaveOut(const std::string& name, const std::string& why);

  bool isWell() const { return m_failed == 0; }
  // Shows how many checks failed, and with JSON all results.
  void conclude();

 private:
  void sayWell(const std::string& name, const std::string& found);
  void sayFailed(const std::string& name, const std::string& cause, const std::string& remedy);

  Output& m_output;
  const bool m_hasMarks;
  Json m_checks = Json::array();
  int m_failed = 0;
};

}  // namespace admin
