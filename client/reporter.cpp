#include "client/reporter.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace printclient {
namespace {

bool isTerminal(std::FILE* file) {
#ifdef _WIN32
  return _isatty(_fileno(file)) != 0;
#else
  return isatty(fileno(file)) != 0;
#endif
}

constexpr char kClearLine[] = "\r\x1b[K";

}  // namespace

Reporter::Reporter() : Reporter(stdout, isTerminal(stdout)) {}

void Reporter::clearLocked() {
  if (m_hasProgress) std::fputs(kClearLine, m_out);
  m_hasProgress = false;
}

void Reporter::line(const std::string& text) noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  clearLocked();
  std::fputs((text + "\n").c_str(), m_out);
  std::fflush(m_out);
} catch (...) {
}

void Reporter::progress(const std::string& text) noexcept try {
  if (!m_inPlace) {
    line(text);
    return;
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  clearLocked();
  std::fputs(text.c_str(), m_out);
  std::fflush(m_out);
  m_hasProgress = true;
} catch (...) {
}

}  // namespace printclient
