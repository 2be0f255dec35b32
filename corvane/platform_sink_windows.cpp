#include "corvane/host_properties.h"
#include "corvane/local_monitor.h"
#include "corvane/process_identity.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace corvane {
namespace {

// Appends to the log file, which every process that has the module loaded shares: each line is one append, so lines of
// different processes do not mix. A file past its limit becomes "<name>.1" and a new one is begun; while another
// process still has it open, the old file simply grows on. A line that cannot be written still goes to the debugger.
class LogFileSink : public LogSink {
 public:
  LogFileSink()
      : m_path(HostProperties::getInstance().logFile()),
        m_oldPath(m_path + L".1"),
        m_limit(HostProperties::getInstance().logLimit()) {}
  ~LogFileSink() override { close(); }

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

  void flush() noexcept override {
    if (m_file != INVALID_HANDLE_VALUE) ::FlushFileBuffers(m_file);
  }

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

  void append(const char* text, std::size_t size) noexcept {
    ::OutputDebugStringA(text);
    if (m_path.empty() || !open()) return;
    DWORD written = 0;
    ::WriteFile(m_file, text, static_cast<DWORD>(size), &written, nullptr);
  }

  // The log is the module's own: a user who prints may neither read nor write it.
  bool open() noexcept {
    if (m_file != INVALID_HANDLE_VALUE) {
      LARGE_INTEGER size{};
      if (!::GetFileSizeEx(m_file, &size) || size.QuadPart < m_limit) return true;
    }
    const ProcessIdentity identity;
    if (m_file != INVALID_HANDLE_VALUE) {
      close();
      ::MoveFileExW(m_path.c_str(), m_oldPath.c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    m_file = ::CreateFileW(m_path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return m_file != INVALID_HANDLE_VALUE;
  }

  void close() noexcept {
    if (m_file != INVALID_HANDLE_VALUE) ::CloseHandle(m_file);
    m_file = INVALID_HANDLE_VALUE;
  }

  const std::wstring m_path;
  const std::wstring m_oldPath;
  const long long m_limit;
  HANDLE m_file = INVALID_HANDLE_VALUE;
};

}  // namespace

std::unique_ptr<LogSink> makePlatformSink() {
  return std::make_unique<LogFileSink>();
}

}  // namespace corvane
