#include "admin/commands/progress_bar.h"

#include <windows.h>

#include <algorithm>

namespace admin {
namespace {

constexpr unsigned kWidth = 40;

}  // namespace

bool isTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

bool isUnicodeTerminal() {
  return isTerminal() && GetConsoleOutputCP() == CP_UTF8;
}

ProgressBar::ProgressBar(Output& output) : m_output(output), m_isShown(!output.isJson() && isTerminal()) {}

ProgressBar::~ProgressBar() {
  if (!m_last.empty()) m_output.stream() << "\n" << std::flush;
}

std::string ProgressBar::text(unsigned long long done, unsigned long long all) {
  const unsigned long long percent = all == 0 ? 100 : std::min(done, all) * 100 / all;
  const auto filled = static_cast<std::size_t>(percent * kWidth / 100);
  const std::string number = std::to_string(percent);
  return "[" + std::string(filled, '#') + std::string(kWidth - filled, ' ') + "] " +
         std::string(3 - number.size(), ' ') + number + " %";
}

void ProgressBar::show(unsigned long long done, unsigned long long all) {
  if (!m_isShown) return;
  const std::string now = text(done, all);
  if (now == m_last) return;
  m_last = now;
  m_output.stream() << "\r" << now << std::flush;
}

}  // namespace admin
