#include "client/sinks/printer/ghostscript_printing.h"

#include "programs/text.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace printclient {
namespace {

namespace fs = std::filesystem;

// The numbers in a name such as "gs10.02.1".
std::vector<int> versionOf(const fs::path& folder) {
  std::vector<int> numbers;
  bool isInNumber = false;
  for (const char c : programs::fromPath(folder.filename())) {
    const bool isDigit = c >= '0' && c <= '9';
    if (isDigit && !isInNumber) numbers.push_back(0);
    if (isDigit && numbers.back() < 100000) numbers.back() = 10 * numbers.back() + (c - '0');
    isInNumber = isDigit;
  }
  return numbers;
}

// The latest of those that are installed; empty when there is none.
fs::path latestGhostscript(const fs::path& folder) {
  fs::path latest;
  std::error_code failure;
  for (fs::directory_iterator at(folder / "gs", failure), end; !failure && at != end; at.increment(failure)) {
    std::error_code ignored;
    if (!fs::is_regular_file(at->path() / "bin" / "gswin64c.exe", ignored)) continue;
    if (latest.empty() || versionOf(latest) < versionOf(at->path())) latest = at->path();
  }
  return latest.empty() ? latest : latest / "bin" / "gswin64c.exe";
}

}  // namespace

std::optional<CommandSink::Settings> ghostscriptFor(const std::string& queue, const fs::path& folder) {
  if (folder.empty() || queue.find('%') != std::string::npos) return std::nullopt;
  const fs::path found = latestGhostscript(folder);
  if (found.empty()) return std::nullopt;
  CommandSink::Settings settings;
  settings.program = programs::fromPath(found);
  settings.hasPathForEachCopy = true;
  settings.arguments = {
      "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-dNoCancel", "-sDEVICE=mswinpr2", "-sOutputFile=%printer%" + queue,
      "-f"};
  return settings;
}

fs::path programFolder() {
#ifdef _WIN32
  const wchar_t* const folder = ::_wgetenv(L"ProgramFiles");
  return folder == nullptr ? fs::path() : fs::path(folder);
#else
  return {};
#endif
}

}  // namespace printclient
