#pragma once

#include "admin/base/output.h"

#include <string>

namespace admin {

// How far a document is, as a bar that is drawn over itself; on a terminal only. One thread.
class ProgressBar {
 public:
  // Does nothing unless the standard output is a terminal and lines are wanted.
  explicit ProgressBar(Output& output);
  // Ends the line of the bar.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(unsigned long long done, unsigned long long all);

  // "[##########          ]  50 %"
  static std::string text(unsigned long long done, unsigned long long all);

 private:
  Output& m_output;
  const bool m_isShown;
  std::string m_last;
};

// Whether the standard output is a console window, and whether that takes text beyond ASCII.
bool isTerminal();
bool isUnicodeTerminal();

}  // namespace admin
