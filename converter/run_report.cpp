#include "converter/run_report.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string_view>

namespace mg::converter {
namespace {

// A job may print anything; only what a log can show is repeated, and not much of it.
std::string printable(std::string text) {
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text.substr(0, 200);
}

std::string_view lineAt(const std::string& said, size_t begin) {
  const size_t end = said.find_first_of("\r\n", begin);
  return std::string_view(said).substr(begin, end == std::string::npos ? end : end - begin);
}

std::string_view takeWord(std::string_view& line) {
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(line.size(), word.size() + 1));
  return word;
}

RunReport::Ending endingOf(std::string_view word) {
  if (word == "end") return RunReport::Ending::kEndOfDocument;
  if (word == "quit") return RunReport::Ending::kQuit;
  if (word == "error") return RunReport::Ending::kError;
  if (word == "stop") return RunReport::Ending::kStop;
  return RunReport::Ending::kUnknown;
}

}  // namespace

std::string readLastWords(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "";
  file.seekg(0, std::ios::end);
  const std::streamoff from = std::max<std::streamoff>(0, static_cast<std::streamoff>(file.tellg()) - kLastWords);
  file.seekg(from);
  std::string text(kLastWords, '\0');
  file.read(text.data(), kLastWords);
  text.resize(static_cast<size_t>(file.gcount()));
  return text;
}

RunReport readReport(const std::string& said, const std::string& marker) {
  const size_t at = said.rfind("\n" + marker);
  if (at == std::string::npos) return {};
  std::string_view line = lineAt(said, at + 1 + marker.size());
  const std::string_view pages = takeWord(line);
  RunReport report;
  if (std::from_chars(pages.data(), pages.data() + pages.size(), report.pages).ec != std::errc()) return {};
  report.ending = endingOf(takeWord(line));
  const std::string_view rest = takeWord(line);
  report.hasRest = rest != "0";
  report.hasFurtherPage = rest == "2";
  report.isReported = takeWord(line) == "reported";
  // Ghostscript has no name for what is not an object of the language, such as the text that it cannot read.
  report.error = printable(std::string(line.substr(0, line.find(" in ----nostringval----"))));
  return report;
}

std::string errorLine(const std::string& said) {
  size_t begin = said.find("Error: ");
  if (begin == std::string::npos) {
    const size_t last = said.find_last_not_of("\r\n ");
    if (last == std::string::npos) return "";
    const size_t line = said.find_last_of('\n', last);
    begin = line == std::string::npos ? 0 : line + 1;
  }
  return printable(std::string(lineAt(said, begin)));
}

}  // namespace mg::converter
