#pragma once

#include "admin/base/output.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace admin {

// What can be done about a check that has failed: in words, as in "start the service aps", and the deed itself, which
// throws when it did not work.
struct Repair {
  std::string what;
  std::function<void()> act;
};

// Looks for the repair of a check that has just failed; nothing when there is none.
using FindRepair = std::function<std::optional<Repair>()>;
// Whether that repair is wanted.
using AskRepair = std::function<bool(const std::string& what)>;

// Runs checks one after the other and shows each result at once: a tick and the finding, or a cross with the cause and,
// on a separate line, the remedy. What a failed check's repair did is shown below, and the check is made again. Belongs
// to one thread.
class Diagnosis {
 public:
  // With marks: ticks and crosses instead of words. Without a function to ask with, nothing is repaired.
  Diagnosis(Output& output, bool hasMarks, AskRepair ask = {})
      : m_output(output), m_hasMarks(hasMarks), m_ask(std::move(ask)) {}

  // The check returns its finding as text, or throws a Failure. True when it succeeded, at once or after repairs.
  bool examine(const std::string& name, const std::function<std::string()>& examination,
               const FindRepair& findRepair = {});
  // A check that cannot run because another one failed.
  void skip(const std::string& name, const std::string& why);

  // A check that cannot run here and need not: it counts neither as succeeded nor as failed.
  void leaveOut(const std::string& name, const std::string& why);

  bool isWell() const { return m_failed == 0; }
  // Shows how many checks failed, and with JSON all results; with a remark about the whole unless it is empty.
  void conclude(const std::string& remark = {});

 private:
  struct Result {
    bool isWell = false;
    std::string text;    // what was found, or the cause
    std::string remedy;  // of a cause
  };
  static Result look(const std::function<std::string()>& examination);
  // Whether the repair was made; shows and notes what became of it.
  bool repair(const Repair& repair, Json& repairs);
  void show(const std::string& name, const Result& result);
  void showBelow(const std::string& text);
  void note(const std::string& name, const Result& result, const Json& repairs);

  Output& m_output;
  const bool m_hasMarks;
  const AskRepair m_ask;
  Json m_checks = Json::array();
  int m_failed = 0;
};

}  // namespace admin
