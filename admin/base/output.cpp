#include "admin/base/output.h"

#include "corvane/base/text.h"

#include <nlohmann/json.hpp>

namespace admin {
namespace {

using corvane::printable;

// A name with bytes that are no text is shown with replacement characters, never refused. Everything but ASCII is
// escaped: it stays what it is for whoever reads the JSON, and does nothing to a terminal.
std::string written(const Json& value, int indent) {
  return value.dump(indent, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

void Output::line(const std::string& text) {
  if (!m_json) m_out << printable(std::string_view(text)) << "\n" << std::flush;
}

void Output::facts(const Json& facts) {
  if (m_json) m_out << written(facts, 2) << "\n" << std::flush;
}

void Output::event(const Json& facts) {
  if (m_json) m_out << written(facts, -1) << "\n" << std::flush;
}

void Output::failure(const Failure& failure) {
  if (m_json) {
    Json error;
    error["code"] = static_cast<int>(failure.code());
    error["what"] = failure.what();
    error["remedy"] = failure.remedy();
    facts({{"error", error}});
    return;
  }
  m_errors << "mgprintmon: " << printable(std::string_view(failure.what())) << "\n";
  if (!failure.remedy().empty()) m_errors << "  " << printable(std::string_view(failure.remedy())) << "\n";
  m_errors << std::flush;
}

Json textValue(std::wstring_view text) {
  return corvane::toUtf8(text);
}

}  // namespace admin
