#pragma once

#include <cstdio>
#include <mutex>
#include <string>

namespace printclient {

// What a person sees: lines, and on a terminal one line of progress that is written over in place. Any thread may
// report. Output that nobody takes is given up.
class Reporter {
 public:
  // On the standard output; a terminal is recognised.
  Reporter();
  // For tests.
  Reporter(std::FILE* out, bool inPlace) : m_out(out), m_inPlace(inPlace) {}

  void line(const std::string& text) noexcept;
  // On a terminal the text replaces the last progress; otherwise it is a line.
  void progress(const std::string& text) noexcept;
  // Whether progress is cheap for the eye, so that it may be given often.
  bool isInPlace() const { return m_inPlace; }

 private:
  void clearLocked();

  std::FILE* const m_out;
  const bool m_inPlace;
  std::mutex m_lock;  // guards what follows, and the order of the output
  bool m_hasProgress = false;
};

}  // namespace printclient
