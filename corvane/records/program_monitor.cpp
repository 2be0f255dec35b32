#include "corvane/records/program_monitor.h"

#include "corvane/base/format.h"
#include "corvane/base/process.h"
#include "corvane/records/local_monitor.h"
#include "corvane/records/messages.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

namespace {

constexpr std::size_t kStackText = 1024;

// Never destroyed: records may be written until the last moment of the process.
struct DefaultMonitor {
  std::mutex lock;
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
  const corvane::LastErrorKeeper keeper;
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
  const corvane::LastErrorKeeper keeper;
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
