#include "corvane/base/process.h"
#include "corvane/records/host_properties.h"
#include "corvane/records/program_monitor.h"
#include "corvane/records/shared_log_file.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace corvane {
namespace {

// Lines go to the debugger and to the log file.
class LogFileSink : public LogSink {
 public:
  LogFileSink()
      : m_file(HostProperties::getInstance().logFile(),
               static_cast<long long>(HostProperties::getInstance().logLimit())) {}

  void write(std::string_view line) noexcept override {
    char onStack[kStackLine];
    try {
      if (line.size() + sizeof kLineEnd > sizeof onStack) {
        std::string text(line);
        text += kLineEnd;
        writeEnded(text.c_str(), text.size());
        return;
      }
    } catch (...) {  // a line without its end says more than none
    }
    const std::size_t length = std::min(line.size(), sizeof onStack - sizeof kLineEnd);
    std::memcpy(onStack, line.data(), length);
    std::memcpy(onStack + length, kLineEnd, sizeof kLineEnd);
    writeEnded(onStack, length + sizeof kLineEnd - 1);
  }

  void flush() noexcept override { m_file.flush(); }

 private:
  static constexpr char kLineEnd[] = "\r\n";
  static constexpr std::size_t kStackLine = 2048;

  void writeEnded(const char* text, std::size_t size) noexcept {
    append(text, size);
    const unsigned long error = ProcessIdentity::takeError();
    if (error == 0) return;
    char line[256];
    const int length = std::snprintf(line, sizeof line,
                                     "identity: a user's identity could not be put back (error %lu), so the rest of "
                                     "that call was refused; restart the print spooler%s",
                                     error, kLineEnd);
    if (length > 0) append(line, static_cast<std::size_t>(length));
  }

  // A line that cannot be written still goes to the debugger.
  void append(const char* text, std::size_t size) noexcept {
    ::OutputDebugStringA(text);
    m_file.append(text, size);
  }

  SharedLogFile m_file;
};

}  // namespace

std::unique_ptr<LogSink> makePlatformSink() {
  return std::make_unique<LogFileSink>();
}

}  // namespace corvane
