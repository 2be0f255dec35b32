#pragma once

#include "admin/base/failure.h"

#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <string_view>

namespace admin {

// Members stay in the order in which they were added, which is how a person reads them.
using Json = nlohmann::ordered_json;

// What a command says, either as lines for a person or as JSON for a machine; each call that does not fit the chosen
// form does nothing, so that a command says both and lets this choose. One thread.
class Output {
 public:
  Output(std::ostream& out, std::ostream& errors, bool json) : m_out(out), m_errors(errors), m_json(json) {}

  bool isJson() const { return m_json; }
  // A line for a person.
  void line(const std::string& text);
  // The facts of a command, for a machine: one document, several lines.
  void facts(const Json& facts);
  // One of many documents that follow each other: one line each.
  void event(const Json& facts);
  // Why the command failed: on the error output for a person, {"error": ...} on the standard output for a machine.
  void failure(const Failure& failure);
  // The place for what is neither: the progress bar.
  std::ostream& stream() { return m_out; }

 private:
  std::ostream& m_out;
  std::ostream& m_errors;
  bool m_json;
};

// The text as UTF-8; for values that are not text, what nlohmann-json makes of them.
Json textValue(std::wstring_view text);

// How far a document is, as a bar that is drawn over itself; on a terminal only. One thread.
class ProgressBar {
 public:
  // Does nothing unless the standard output is a terminal and lines are wanted.
  explicit ProgressBar(Output& output);
  // Ends the line of the bar.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(unsigned long long done, unsigned long long all);

  // "[##########          ]  50 %"
  static std::string text(unsigned long long done, unsigned long long all);

 private:
  Output& m_output;
  const bool m_isShown;
  std::string m_last;
};

// Whether the standard output is a console window, and whether that takes text beyond ASCII.
bool isTerminal();
bool isUnicodeTerminal();

}  // namespace admin
