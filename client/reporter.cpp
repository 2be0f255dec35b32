#include "client/reporter.h"

#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "programs/text.h"

#include <fmt/format.h>
#include <memory>
#include <utility>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace printclient {
namespace {

int descriptorOf(std::FILE* file) {
#ifdef _WIN32
  return _fileno(file);
#else
  return fileno(file);
#endif
}

bool isTerminal(std::FILE* file) {
#ifdef _WIN32
  return _isatty(descriptorOf(file)) != 0;
#else
  return isatty(descriptorOf(file)) != 0;
#endif
}

constexpr char kClearLine[] = "\r\x1b[K";

}  // namespace

Reporter::Reporter() : Reporter(stdout, isTerminal(stdout)) {}

Reporter::Reporter(std::FILE* out, bool inPlace) : m_inPlace(inPlace), m_queue(programs::outputTo(descriptorOf(out))) {}

std::string Reporter::clearLocked() {
  return std::exchange(m_hasProgress, false) ? kClearLine : "";
}

void Reporter::line(const std::string& text) noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_queue.put(fmt::format("{}{}\n", clearLocked(), corvane::printable(std::string_view(text))));
} catch (...) {
}

void Reporter::progress(const std::string& text) noexcept try {
  if (!m_inPlace) {
    line(text);
    return;
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  m_queue.put(clearLocked() + corvane::printable(std::string_view(text)));
  m_hasProgress = true;
} catch (...) {
}

void ReporterMonitor::write(const CS_Record& record) noexcept try {
  if (record.level != corvane::kLevelConnectionFailure) m_reporter.line(programs::oneLine(record.text));
} catch (...) {
}

void ReporterMonitor::notify(const CS_Notice& notice) noexcept try {
  m_reporter.line(programs::oneLine(notice.line));
} catch (...) {
}

}  // namespace printclient
