#pragma once

#include "admin/base/output.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace admin {

// One examination after the other, each said as soon as it is over: a tick and what was found, or a cross with the
// cause and, on a line of its own, the remedy. One thread.
class Diagnosis {
 public:
  // With marks, ticks and crosses instead of words.
  Diagnosis(Output& output, bool hasMarks) : m_output(output), m_hasMarks(hasMarks) {}

  // The examination gives what it found, in words, and throws a Failure when it is not well. True when it is.
  bool examine(const std::string& name, const std::function<std::string()>& examination);
  // One that cannot be made because of another one.
  void skip(const std::string& name, const std::string& why);

  // One that cannot be made here and need not be: neither well nor failed.
  void leaveOut(const std::string& name, const std::string& why);

  bool isWell() const { return m_failed == 0; }
  // Says how many are well, and everything for a machine.
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
