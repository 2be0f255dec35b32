#include "admin/base/log_tail.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <sstream>

namespace admin {
namespace {

constexpr unsigned kTailBytes = 65536;

bool tellsOfFailure(const std::string& line) {
  for (const char* word : {" failure", " exception", " connection "}) {
    if (line.find(word) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> failuresInText(const std::string& text, std::size_t most) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (tellsOfFailure(line)) lines.push_back(programs::oneLine(corvane::fromUtf8(line)));
  }
  if (lines.size() > most) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
  return lines;
}

std::vector<std::string> failuresInLog(const std::wstring& path, std::size_t most) {
  try {
    if (path.empty() || !fileExists(path)) return {};
    return failuresInText(fileTail(path, kTailBytes), most);
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace admin
