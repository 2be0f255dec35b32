#pragma once

#include "corvane/records/program_monitor.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string_view>

namespace corvane {

// Takes the finished lines of this process's log; UTF-8, without the line end. Called under a lock, from any thread.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(std::string_view line) noexcept = 0;
  virtual void flush() noexcept {}
};

// The sink of this platform: on Windows the log file of HostProperties, rotated, and the debugger's output; elsewhere
// the standard error output.
std::unique_ptr<LogSink> makePlatformSink();

// The monitor that a process has from its start: one line for each record in the process's own log. One per process,
// never destroyed. Without memory a line is still written, with "?" for every character that is not ASCII.
class LocalMonitor : public CS_ProgramMonitor {
 public:
  static LocalMonitor& instance();

  // Another place for the lines; null brings the platform's sink back.
  void setSink(std::unique_ptr<LogSink> replacement);
  // A line that is no record, such as a trace entry. Never throws, keeps the last error.
  void writeLine(const wchar_t* kind, const wchar_t* text) noexcept;
  // For a monitor that writes the log besides sending its records elsewhere.
  void writeRecord(const CS_Record& record) noexcept { write(record); }
  void flushSink() noexcept { flush(); }
  // The notice's kind and line; its values are not repeated. Never throws, keeps the last error.
  void writeNotice(const CS_Notice& notice) noexcept;

 protected:
  void write(const CS_Record& record) noexcept override;
  void flush() noexcept override;

 private:
  LocalMonitor() = default;
  LogSink& sink();

  std::mutex m_lock;  // guards m_sink and the order of lines
  std::unique_ptr<LogSink> m_sink;
};

// The word that a level is written as: "failure", "clean-up", "trace", "connection", "exception" or "note".
const wchar_t* levelWord(int level);

}  // namespace corvane

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
