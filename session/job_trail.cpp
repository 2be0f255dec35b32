#include "session/job_trail.h"

#include "corvane/base/format.h"
#include "corvane/base/process.h"
#include "corvane/records/local_monitor.h"

#include <cstdarg>
#include <cwchar>

void JobTrail::add(const wchar_t* format, ...) noexcept {
  const corvane::LastErrorKeeper keeper;
  Line& line = m_lines[m_added++ % kLines];
  GetSystemTimeAsFileTime(&line.at);
  va_list arguments;
  va_start(arguments, format);
  corvane::formatWide(line.text, kLineSize, format, arguments);
  va_end(arguments);
}

void JobTrail::write(const wchar_t* kind) const noexcept {
  const corvane::LastErrorKeeper keeper;
  for (std::size_t i = m_added > kLines ? m_added - kLines : 0; i < m_added; ++i) {
    const Line& line = m_lines[i % kLines];
    FILETIME local{};
    SYSTEMTIME at{};
    FileTimeToLocalFileTime(&line.at, &local);
    FileTimeToSystemTime(&local, &at);
    wchar_t text[kLineSize + 16];
    std::swprintf(text, std::size(text), L"%02d:%02d:%02d.%03d %ls", at.wHour, at.wMinute, at.wSecond, at.wMilliseconds,
                  line.text);
    corvane::LocalMonitor::instance().writeLine(kind, text);
  }
}
