#pragma once

#include "admin/base/failure.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <string_view>

namespace admin {

// Members keep the order in which they were added, for readability.
using Json = nlohmann::ordered_json;

// The output of a command, either as lines of text or as JSON. A call that does not fit the chosen form does nothing,
// so a command makes both kinds of calls. Belongs to one thread.
class Output {
 public:
  Output(std::ostream& out, std::ostream& errors, bool json) : m_out(out), m_errors(errors), m_json(json) {}

  bool isJson() const { return m_json; }
  // A line of text.
  void line(const std::string& text);
  // The result of a command as JSON: one document, several lines.
  void facts(const Json& facts);
  // One of several JSON documents in sequence: one line each.
  void event(const Json& facts);
  // Why the command failed: as text on the error output, or as {"error": ...} on the standard output.
  void failure(const Failure& failure);
  // The stream itself, for the progress bar.
  std::ostream& stream() { return m_out; }

 private:
  std::ostream& m_out;
  std::ostream& m_errors;
  bool m_json;
};

// A number of bytes for a person: "9999 B", "10 kB", "12 MB".
std::string sizeText(std::int64_t bytes);

// The text as a JSON string in UTF-8.
Json textValue(std::wstring_view text);

// The progress of a document as a bar that is redrawn in place; on a terminal only. Belongs to one thread.
class ProgressBar {
 public:
  // Shows nothing unless the standard output is a terminal and the output is text.
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

// Whether the standard output is a console window, whether that shows UTF-8, and whether somebody can type there.
bool isTerminal();
bool isInputTerminal();
bool isUnicodeTerminal();

}  // namespace admin
