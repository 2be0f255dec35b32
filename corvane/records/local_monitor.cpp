#include "corvane/records/local_monitor.h"

#include "corvane/base/format.h"
#include "corvane/base/local_time.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/records/messages.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <new>
#include <string>

namespace corvane {
namespace {

class NoSink : public LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

// "2026-03-01 12:30:05.123 +0100 4711.5 ": local time, process and thread.
std::size_t writeStamp(char* buffer, std::size_t size) {
  const std::size_t used = writeLocalTime(buffer, size, std::chrono::system_clock::now());
  const int written = std::snprintf(buffer + used, size - used, " %lu.%lu ", processId(), threadId());
  return used + (written > 0 ? std::min(static_cast<std::size_t>(written), size - used - 1) : 0);
}

// One line of a log: control characters would end it or hide what follows.
void appendAscii(char* buffer, std::size_t size, std::size_t& used, const wchar_t* text) {
  for (; *text != L'\0' && used + 1 < size; ++text) {
    buffer[used++] = *text >= 0x20 && *text < 0x7F ? static_cast<char>(*text) : '?';
  }
}

}  // namespace

LocalMonitor& LocalMonitor::instance() {
  alignas(LocalMonitor) static unsigned char storage[sizeof(LocalMonitor)];
  static LocalMonitor* const monitor = [] {
    auto* made = new (storage) LocalMonitor;
    made->addRef();  // the process's own reference: the storage is not the heap's
    return made;
  }();
  return *monitor;
}

LogSink& LocalMonitor::sink() {
  if (m_sink == nullptr) m_sink = makePlatformSink();
  if (m_sink != nullptr) return *m_sink;
  static NoSink none;
  return none;
}

void LocalMonitor::setSink(std::unique_ptr<LogSink> replacement) {
  const std::lock_guard guard(m_lock);
  m_sink = std::move(replacement);
}

void LocalMonitor::writeLine(const wchar_t* kind, const wchar_t* text) noexcept {
  const LastErrorKeeper keeper;
  char line[2048];
  std::size_t used = writeStamp(line, sizeof line);
  appendAscii(line, sizeof line, used, kind);
  appendAscii(line, sizeof line, used, L" ");
  const std::lock_guard guard(m_lock);
  try {
    const std::string whole = std::string(line, used) + printable(std::wstring_view(text));
    sink().write(whole);
  } catch (...) {
    appendAscii(line, sizeof line, used, text);
    if (m_sink != nullptr) m_sink->write(std::string_view(line, used));
  }
}

void LocalMonitor::write(const CS_Record& record) noexcept {
  wchar_t kind[64];
  if (record.number != 0) {
    std::swprintf(kind, std::size(kind), L"#%u %ls %d:", record.report, levelWord(record.level), record.number);
  } else {
    std::swprintf(kind, std::size(kind), L"#%u %ls:", record.report, levelWord(record.level));
  }
  writeLine(kind, record.text);
}

void LocalMonitor::writeNotice(const CS_Notice& notice) noexcept {
  const LastErrorKeeper keeper;
  wchar_t kind[64];
  std::swprintf(kind, std::size(kind), L"%.60ls:", notice.kind.c_str());
  writeLine(kind, notice.line.c_str());
}

void LocalMonitor::flush() noexcept {
  const LastErrorKeeper keeper;
  const std::lock_guard guard(m_lock);
  if (m_sink != nullptr) m_sink->flush();
}

const wchar_t* levelWord(int level) {
  switch (level) {
    case kLevelFailure:
      return L"failure";
    case kLevelCleanupNote:
      return L"clean-up";
    case kLevelStackTrace:
      return L"trace";
    case kLevelConnectionFailure:
      return L"connection";
    case kLevelException:
      return L"exception";
    default:
      return L"note";
  }
}

}  // namespace corvane

std::atomic<bool> CS_TraceEntry::s_enabled{false};

void CS_TraceEntry::enter(const wchar_t* format, ...) noexcept {
  const corvane::LastErrorKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  corvane::formatWide(m_text, sizeof m_text / sizeof m_text[0], format, arguments);
  va_end(arguments);
  m_active = true;
  corvane::LocalMonitor::instance().writeLine(L"enter", m_text);
}

void CS_TraceEntry::leave() noexcept {
  corvane::LocalMonitor::instance().writeLine(L"leave", m_text);
}
