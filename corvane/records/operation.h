#pragma once

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"

#include <atomic>

// Marks the time that an operation takes, from its construction to the end of its scope, in the local log.
//
//   CS_TraceEntry trace(L"MGOpenPort (pName = %s)", name);
//
// While tracing is off (the default) an entry costs one branch: nothing is formatted and nothing is allocated. Tracing
// is switched by the value "Trace" of the framework's configuration, read when the component server is initialised.
// Leaves the thread's last error as it was; never throws. A null argument for %s is written as "(null)".
class CS_TraceEntry {
 public:
  template <class... Arguments>
  explicit CS_TraceEntry(const wchar_t* format, Arguments... arguments) {
    if (s_enabled.load(std::memory_order_relaxed)) [[unlikely]]
      enter(format, arguments...);
  }
  ~CS_TraceEntry() {
    if (m_active) [[unlikely]]
      leave();
  }
  CS_TraceEntry(const CS_TraceEntry&) = delete;
  CS_TraceEntry& operator=(const CS_TraceEntry&) = delete;

  static void enable(bool on) { s_enabled.store(on, std::memory_order_relaxed); }
  static bool isEnabled() { return s_enabled.load(std::memory_order_relaxed); }

 private:
  void enter(const wchar_t* format, ...) noexcept;
  void leave() noexcept;

  static std::atomic<bool> s_enabled;
  bool m_active = false;
  wchar_t m_text[128];  // filled by enter() only
};

// The convention by which every operation turns what goes wrong inside it into records and a result:
//
//   run the body -> on an exception, record it -> if anything was recorded: clean up, write the closing line, report.
//
// What was recorded last is the operation's error record; an operation has failed exactly when it has one. Nothing
// thrown by the body or the clean-up leaves run(). One Operation belongs to one call on one thread.
//
//   CS_TraceEntry trace(L"MGOpenPort (pName = %s)", name);
//   Operation operation(L"Stack Trace: MgPrintMon - MGOpenPort()");
//   operation.run([&] {
//     if (name == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
//     ...
//     if (port == nullptr) operation.fail(corvane::kLevelFailure, L"MgPrintMon - MGOpenPort: port not found");
//   });
//   return operation.succeeded() ? TRUE : FALSE;
class Operation {
 public:
  // The closing line is the whole text, with static lifetime; an operation without one (null) ends with what it has
  // recorded. A caught CS_Exception is recorded at the given level; any other exception is recorded as message number
  // 3012 at that level.
  explicit Operation(const wchar_t* closingLine, int exceptionLevel = corvane::kLevelException)
      : m_closingLine(closingLine), m_exceptionLevel(exceptionLevel) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Runs the body under the convention. Leaves the thread's last error as the body left it.
  template <class Body>
  void run(Body&& body) {
    run(static_cast<Body&&>(body), [] {});
  }

  // The clean-up runs only after a failure, before the closing line; what it throws is recorded and goes no further.
  template <class Body, class CleanUp>
  void run(Body&& body, CleanUp&& cleanUp) {
    attempt(body);
    if (succeeded()) return;
    attempt(cleanUp);
    close();
  }

  // Runs one step of a body that goes on when the step fails: what the step throws is recorded and goes no further.
  template <class Step>
  void attempt(Step&& step) {
    try {
      step();
    } catch (...) {
      recordCurrentException();
    }
  }

  // As run(), for the few operations that let a CS_Exception out to their caller: after the closing line and the
  // report, a CS_Exception thrown by the body goes on. Anything else still ends here.
  template <class Body>
  void runAndPassOn(Body&& body) {
    try {
      body();
    } catch (const CS_Exception&) {
      recordCurrentException();
      close();
      throw;
    } catch (...) {
      recordCurrentException();
    }
    if (!succeeded()) close();
  }

  // Records the text on the default monitor, keeps it as the error record and throws it.
  template <class... Arguments>
  [[noreturn]] void fail(int level, const wchar_t* format, Arguments... arguments) {
    m_record = CS_ProgramMonitor::getDefaultMonitor()->recordText(level, corvane::kCategory, format, arguments...);
    throw CS_Exception(m_record);
  }

  // Records the text, on the error record when there is one and on the default monitor otherwise, and keeps it as the
  // error record; the operation goes on but counts as failed.
  template <class... Arguments>
  void note(int level, const wchar_t* format, Arguments... arguments) {
    m_record = target()->recordText(level, corvane::kCategory, format, arguments...);
  }

  // The same for a text that starts a report of its own: recorded on the default monitor whatever came before it.
  template <class... Arguments>
  void noteAnew(int level, const wchar_t* format, Arguments... arguments) {
    m_record = nullptr;
    note(level, format, arguments...);
  }

  // Ends the operation, if it fails, with another closing line and level than its own.
  void closeWith(const wchar_t* closingLine, int level) {
    m_closingLine = closingLine;
    m_closingLevel = level;
  }

  bool succeeded() const { return !m_record; }
  const CS_RCPtr<CS_ProgramMonitor>& errorRecord() const { return m_record; }

  // Classifies and records the exception in flight; only inside a catch block.
  void recordCurrentException() noexcept;

 private:
  CS_RCPtr<CS_ProgramMonitor> target() const;
  void close() noexcept;

  const wchar_t* m_closingLine;
  int m_closingLevel = corvane::kLevelStackTrace;
  int m_exceptionLevel;
  CS_RCPtr<CS_ProgramMonitor> m_record;
};
