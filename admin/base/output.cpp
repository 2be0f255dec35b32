#include "admin/base/output.h"

#include "corvane/base/text.h"

#include <windows.h>

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using corvane::printable;

constexpr unsigned kWidth = 40;

// Bytes that are not valid text become replacement characters and are never refused. Everything but ASCII is escaped:
// the value stays the same for a JSON reader and has no effect on a terminal.
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

std::string sizeText(std::int64_t bytes) {
  if (bytes < 10000) return fmt::format("{} B", bytes);
  if (bytes < 10000000) return fmt::format("{} kB", bytes / 1000);
  return fmt::format("{} MB", bytes / 1000000);
}

Json textValue(std::wstring_view text) {
  return corvane::toUtf8(text);
}

bool isTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

bool isInputTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

bool isUnicodeTerminal() {
  return isTerminal() && GetConsoleOutputCP() == CP_UTF8;
}

ProgressBar::ProgressBar(Output& output) : m_output(output), m_isShown(!output.isJson() && isTerminal()) {}

ProgressBar::~ProgressBar() {
  if (!m_last.empty()) m_output.stream() << "\n" << std::flush;
}

std::string ProgressBar::text(unsigned long long done, unsigned long long all) {
  const unsigned long long percent = all == 0 ? 100 : std::min(done, all) * 100 / all;
  const auto filled = static_cast<std::size_t>(percent * kWidth / 100);
  return fmt::format("[{:<{}}] {:>3} %", std::string(filled, '#'), kWidth, percent);
}

void ProgressBar::show(unsigned long long done, unsigned long long all) {
  if (!m_isShown) return;
  const std::string now = text(done, all);
  if (now == m_last) return;
  m_last = now;
  m_output.stream() << "\r" << now << std::flush;
}

}  // namespace admin
