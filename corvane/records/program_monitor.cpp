#include "corvane/records/program_monitor.h"

#include "corvane/base/lock.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "util/last_error.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cwchar>
#include <new>

namespace {

constexpr std::size_t kStackText = 1024;

// Never destroyed: records may be written until the last moment of the process.
struct DefaultMonitor {
  corvane::Lock lock;
  CS_RCPtr<CS_ProgramMonitor> monitor;
};

DefaultMonitor& defaultMonitor() {
  alignas(DefaultMonitor) static unsigned char storage[sizeof(DefaultMonitor)];
  static auto* const instance = new (storage) DefaultMonitor;
  return *instance;
}

}  // namespace

int CS_ProgramMonitor::addRef() {
  return m_references.add();
}

int CS_ProgramMonitor::removeRef() {
  const int left = m_references.remove();
  if (left == 0) delete this;
  return left;
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::report(bool flushSinks) {
  const mg::LastErrorKeeper keeper;
  if (flushSinks) flush();
  return this;
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::recordText(int level, long long category, const wchar_t* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  auto result = recordFormatted(level, category, 0, format, arguments);
  va_end(arguments);
  return result;
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::recordNumber(int level, long long category, int number,
                                                            const wchar_t* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  auto result = recordFormatted(level, category, number, format, arguments);
  va_end(arguments);
  return result;
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::recordFormatted(int level, long long category, int number,
                                                               const wchar_t* format, va_list arguments) {
  const mg::LastErrorKeeper keeper;
  wchar_t onStack[kStackText] = {};
  wchar_t* at = onStack;
  const auto append = [&](const wchar_t* text) {
    while (*text != L'\0' && at < onStack + kStackText - 1)
      *at++ = *text++;
  };
  if (number != 0) {
    append(corvane::messageText(number));
    if (format != nullptr) append(L" ");
  }
  const auto prefix = static_cast<std::size_t>(at - onStack);
  std::unique_ptr<wchar_t[]> onHeap;
  const wchar_t* text = onStack;
  if (format != nullptr) {
    va_list again;
    va_copy(again, arguments);
    if (!corvane::formatWide(at, kStackText - prefix, format, arguments)) {
      onHeap.reset(new (std::nothrow) wchar_t[corvane::kMaxFormatted]);
      if (onHeap != nullptr) {
        std::copy(onStack, at, onHeap.get());
        corvane::formatWide(onHeap.get() + prefix, corvane::kMaxFormatted - prefix, format, again);
        text = onHeap.get();
      }
    }
    va_end(again);
  }
  return take({level, category, number, 0, text});
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::take(CS_Record record) {
  static std::atomic<unsigned> lastReport{0};
  record.report = ++lastReport;
  write(record);
  try {
    return new CS_Report(this, record.report, record.text);
  } catch (...) {
    return this;
  }
}

void CS_ProgramMonitor::notify(const CS_Notice& notice) noexcept {
  corvane::LocalMonitor::instance().writeNotice(notice);
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::getDefaultMonitor() {
  DefaultMonitor& holder = defaultMonitor();
  {
    const std::lock_guard guard(holder.lock);
    if (holder.monitor) return holder.monitor;
  }
  return getLocalMonitor();
}

void CS_ProgramMonitor::setDefaultMonitor(const CS_RCPtr<CS_ProgramMonitor>& monitor) {
  DefaultMonitor& holder = defaultMonitor();
  CS_RCPtr<CS_ProgramMonitor> old = monitor;  // released after the lock: its end may record something
  const std::lock_guard guard(holder.lock);
  std::swap(old, holder.monitor);
}

CS_RCPtr<CS_ProgramMonitor> CS_ProgramMonitor::getLocalMonitor() {
  return &corvane::LocalMonitor::instance();
}

CS_Report::CS_Report(const CS_RCPtr<CS_ProgramMonitor>& root, unsigned number, const wchar_t* firstText)
    : m_root(root), m_number(number), m_lastText(firstText) {}

CS_RCPtr<CS_ProgramMonitor> CS_Report::report(bool flushSinks) {
  if (flushSinks) flush();
  return this;
}

void CS_Report::write(const CS_Record& record) noexcept {
  m_root->write(record);
}

void CS_Report::flush() noexcept {
  m_root->flush();
}

CS_RCPtr<CS_ProgramMonitor> CS_Report::take(CS_Record record) {
  record.report = m_number;
  write(record);
  try {
    m_lastText = record.text;
  } catch (...) {
    m_lastText.clear();
  }
  return this;
}

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
  const mg::LastErrorKeeper keeper;
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
  const LevelWords* level = wordsOf(record.level);
  const wchar_t* word = level != nullptr ? level->inOwnLog : L"note";
  wchar_t kind[64];
  if (record.number != 0) {
    std::swprintf(kind, std::size(kind), L"#%u %ls %d:", record.report, word, record.number);
  } else {
    std::swprintf(kind, std::size(kind), L"#%u %ls:", record.report, word);
  }
  writeLine(kind, record.text);
}

void LocalMonitor::writeNotice(const CS_Notice& notice) noexcept {
  const mg::LastErrorKeeper keeper;
  wchar_t kind[64];
  std::swprintf(kind, std::size(kind), L"%.60ls:", notice.kind.c_str());
  writeLine(kind, notice.line.c_str());
}

void LocalMonitor::flush() noexcept {
  const mg::LastErrorKeeper keeper;
  const std::lock_guard guard(m_lock);
  if (m_sink != nullptr) m_sink->flush();
}

}  // namespace corvane
