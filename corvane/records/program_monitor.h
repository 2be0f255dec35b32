#pragma once

#include "corvane/base/lock.h"
#include "corvane/base/rc_ptr.h"

#include <cstdarg>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What became of one piece of work, for people and for programs that wait for it: a line to read, and the same facts as
// named values. A record tells of a failure inside an operation; a notice tells how the whole ended, whether well or
// not. A plain value, owned by its holder.
struct CS_Notice {
  std::wstring kind;                                          // what it is about, such as "job"
  std::wstring line;                                          // one line for a person, without its end
  std::vector<std::pair<std::wstring, std::wstring>> values;  // name and value, at most kMaxValues

  static constexpr int kMaxValues = 32;
};

// One record as a sink sees it. The text belongs to the caller and lives only for the call.
struct CS_Record {
  int level;
  long long category;
  int number;           // 0 for a record of text
  unsigned report;      // records of one failure share this number; 0 when the record stands alone
  const wchar_t* text;  // terminated, never null
};

// Receives the records of this process: what failed, where, and which operations it passed through.
//
// The default monitor is a root: its first record opens a report, the object that recordText() and recordNumber()
// return, and later records on that object belong to the same report. Each record is written at once, so nothing is
// lost when the process ends before report() is called; report() closes the group and flushes.
//
// All operations may be called from any thread, never throw, and leave the thread's last error as it was. When memory
// is short the record is still written (from the stack, cut if need be) and the monitor itself is returned instead of a
// report, so the result is never null.
class CS_ProgramMonitor {
 public:
  CS_ProgramMonitor() = default;
  CS_ProgramMonitor(const CS_ProgramMonitor&) = delete;
  CS_ProgramMonitor& operator=(const CS_ProgramMonitor&) = delete;
  virtual ~CS_ProgramMonitor() = default;

  virtual int addRef();
  virtual int removeRef();

  // Ends a report; with flush, waits until its sinks have taken it.
  virtual CS_RCPtr<CS_ProgramMonitor> report(bool flush);
  // printf-style, with wide text for %s on every platform.
  virtual CS_RCPtr<CS_ProgramMonitor> recordText(int level, long long category, const wchar_t* format, ...);
  // The framework's text for the number, followed by the formatted arguments when a format is given (it may be null).
  virtual CS_RCPtr<CS_ProgramMonitor> recordNumber(int level, long long category, int number, const wchar_t* format,
                                                   ...);

  // The text of the last record of this report; empty for a root. Valid while the report lives.
  virtual const wchar_t* lastText() const { return L""; }

  // Where this process's records go. Never null: without another one it is the local monitor, which writes the log.
  static CS_RCPtr<CS_ProgramMonitor> getDefaultMonitor();
  // Null brings the local monitor back.
  static void setDefaultMonitor(const CS_RCPtr<CS_ProgramMonitor>& monitor);
  // The monitor that writes this process's own log and nothing else.
  static CS_RCPtr<CS_ProgramMonitor> getLocalMonitor();

 protected:
  // Takes one record. Must not throw.
  virtual void write(const CS_Record& record) noexcept = 0;
  virtual void flush() noexcept {}
  // Gives the record its report number, writes it, and returns the object that the records following it go to: a new
  // report for a root, itself for a report.
  virtual CS_RCPtr<CS_ProgramMonitor> take(CS_Record record);

 public:
  // Tells how a piece of work ended. It is no record and belongs to no report; a report passes it to its root. The line
  // is in this process's log when it returns, which needs no memory. The default writes it there and nowhere else.
  virtual void notify(const CS_Notice& notice) noexcept;

 protected:
  friend class CS_Report;

 private:
  CS_RCPtr<CS_ProgramMonitor> recordFormatted(int level, long long category, int number, const wchar_t* format,
                                              va_list arguments);
  corvane::RefCount m_references;
};

// The records of one failure: what was recorded first on a root monitor opens it, and what follows goes to the same
// root under the same report number. Made by CS_ProgramMonitor; kept alive by its references.
class CS_Report : public CS_ProgramMonitor {
 public:
  CS_Report(const CS_RCPtr<CS_ProgramMonitor>& root, unsigned number, const wchar_t* firstText);

  CS_RCPtr<CS_ProgramMonitor> report(bool flush) override;
  const wchar_t* lastText() const override { return m_lastText.c_str(); }
  void notify(const CS_Notice& notice) noexcept override { m_root->notify(notice); }

 protected:
  void write(const CS_Record& record) noexcept override;
  void flush() noexcept override;
  CS_RCPtr<CS_ProgramMonitor> take(CS_Record record) override;

 private:
  CS_RCPtr<CS_ProgramMonitor> m_root;
  unsigned m_number;
  std::wstring m_lastText;  // a report belongs to one operation, and so to one thread
};

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
  // A line that is not a record, such as a trace entry. Never throws, keeps the last error.
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

  corvane::Lock m_lock;  // guards m_sink and the order of lines
  std::unique_ptr<LogSink> m_sink;
};

}  // namespace corvane
