#pragma once

#include "corvane/records/program_monitor.h"
#include "programs/line_queue.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace printclient {

// What a person sees: lines, and on a terminal one line of progress that is written over in place. Any thread may
// report, and none ever waits for it: a job goes on though nobody reads the output or somebody holds the terminal. What
// is not taken is lost and counted (programs/line_queue.h). A text is one line, whatever it holds
// (corvane/base/text.h).
class Reporter {
 public:
  // On the standard output; a terminal is recognised.
  Reporter();
  // For tests. The file stays open for as long as the reporter lives, and belongs to nobody else meanwhile.
  Reporter(std::FILE* out, bool inPlace);

  void line(const std::string& text) noexcept;
  // On a terminal the text replaces the last progress; otherwise it is a line.
  void progress(const std::string& text) noexcept;
  // Whether progress is cheap for the eye, so that it may be given often.
  bool isInPlace() const { return m_inPlace; }
  // Waits for a moment until everything is written.
  void flush() noexcept { m_queue.flush(); }

 private:
  // What makes room for a line; the lock is held.
  std::string clearLocked();

  const bool m_inPlace;
  programs::LineQueue m_queue;
  std::mutex m_lock;  // guards what follows, and the order of the output
  bool m_hasProgress = false;
};

// This process's own framework records, for the person who sees the reporter's lines. Failures to connect are left out:
// SessionLoop says more about them. Safe from any thread; the reporter outlives it.
class ReporterMonitor : public CS_ProgramMonitor {
 public:
  explicit ReporterMonitor(Reporter& reporter) : m_reporter(reporter) {}

  void notify(const CS_Notice& notice) noexcept override;

 protected:
  void write(const CS_Record& record) noexcept override;

 private:
  Reporter& m_reporter;
};

}  // namespace printclient
