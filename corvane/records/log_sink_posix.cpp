#include "corvane/records/program_monitor.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace corvane {
namespace {

// Writes lines of at most PIPE_BUF bytes, and none that the output would make us wait for: the log of a process must
// not stop it because it has no reader. Lines that were not taken are counted in front of the next one that is.
class StandardErrorSink : public LogSink {
 public:
  void write(std::string_view line) noexcept override {
    if (m_lost > 0) {
      char text[64];
      const int size = std::snprintf(text, sizeof text, "%lu lines are missing here: nobody took them\n", m_lost);
      if (!put(text, static_cast<std::size_t>(size))) {
        ++m_lost;
        return;
      }
      m_lost = 0;
    }
    char text[PIPE_BUF];
    const std::size_t size = std::min(line.size(), sizeof text - 1);
    std::memcpy(text, line.data(), size);
    text[size] = '\n';
    if (!put(text, size + 1)) ++m_lost;
  }

 private:
  static bool put(const char* text, std::size_t size) noexcept {
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&output, 1, 0) != 1 || (output.revents & POLLOUT) == 0) return false;
    return ::write(STDERR_FILENO, text, size) == static_cast<ssize_t>(size);
  }

  unsigned long m_lost = 0;
};

}  // namespace

std::unique_ptr<LogSink> makePlatformSink() {
  return std::make_unique<StandardErrorSink>();
}

}  // namespace corvane
