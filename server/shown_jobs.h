#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

namespace aps {

// The printers for which a program was started to show a job, and whose job has not ended yet: such a job ends without
// asking for its end, and is not lost. At most kKept; the oldest makes room. Safe from any thread.
class ShownJobs {
 public:
  static constexpr std::size_t kKept = 256;

  void add(std::wstring printer) {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_printers.push_back(std::move(printer));
    if (m_printers.size() > kKept) m_printers.pop_front();
  }
  // True once for each add() of that printer.
  bool take(const std::wstring& printer) {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = std::find(m_printers.begin(), m_printers.end(), printer);
    if (found == m_printers.end()) return false;
    m_printers.erase(found);
    return true;
  }

 private:
  std::mutex m_lock;  // guards what follows
  std::deque<std::wstring> m_printers;
};

}  // namespace aps
