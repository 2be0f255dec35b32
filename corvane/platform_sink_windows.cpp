#include "corvane/host_properties.h"
#include "corvane/local_monitor.h"

#include <windows.h>

#include <string>

namespace corvane {
namespace {

// Appends to the log file, which every process that has the module loaded shares: each line is one append, so lines of
// different processes do not mix. A file past its limit becomes "<name>.1" and a new one is begun; while another
// process still has it open, the old file simply grows on. A line that cannot be written still goes to the debugger.
class LogFileSink : public LogSink {
 public:
  LogFileSink() : m_path(HostProperties::getInstance().logFile()), m_limit(HostProperties::getInstance().logLimit()) {}
  ~LogFileSink() override { close(); }

  void write(std::string_view line) noexcept override {
    try {
      const std::string text = std::string(line) + "\r\n";
      ::OutputDebugStringA(text.c_str());
      if (m_path.empty() || !open()) return;
      DWORD written = 0;
      ::WriteFile(m_file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    } catch (...) {
      ::OutputDebugStringA("MgPrintMon: not enough memory to write the log\r\n");
    }
  }

  void flush() noexcept override {
    if (m_file != INVALID_HANDLE_VALUE) ::FlushFileBuffers(m_file);
  }

 private:
  bool open() {
    if (m_file != INVALID_HANDLE_VALUE) {
      LARGE_INTEGER size{};
      if (!::GetFileSizeEx(m_file, &size) || size.QuadPart < m_limit) return true;
      close();
      ::MoveFileExW(m_path.c_str(), (m_path + L".1").c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    m_file = ::CreateFileW(m_path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return m_file != INVALID_HANDLE_VALUE;
  }

  void close() noexcept {
    if (m_file != INVALID_HANDLE_VALUE) ::CloseHandle(m_file);
    m_file = INVALID_HANDLE_VALUE;
  }

  std::wstring m_path;
  long long m_limit;
  HANDLE m_file = INVALID_HANDLE_VALUE;
};

}  // namespace

std::unique_ptr<LogSink> makePlatformSink() {
  return std::make_unique<LogFileSink>();
}

}  // namespace corvane
