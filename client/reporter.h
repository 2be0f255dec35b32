#pragma once

#include "programs/line_queue.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace printclient {

// What a person sees: lines, and on a terminal one line of progress that is written over in place. Any thread may
// report, and none ever waits for it: a job goes on though nobody reads the output or somebody holds the terminal. What
// is not taken is lost and counted (programs/line_queue.h). A text is one line, whatever it holds
// (corvane/printable.h).
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

}  // namespace printclient
