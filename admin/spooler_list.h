#pragma once

#include "admin/system_failure.h"

#include <windows.h>

#include <string>
#include <vector>

namespace admin {

// What one of the spooler's Enum... calls answers: records of one type, whose texts lie behind them in the same buffer.
// The call gets buffer, size, and where to put the size needed and the number of records. Throws a SystemFailure.
template <class Record>
class SpoolerList {
 public:
  template <class Enumerate>
  SpoolerList(const std::string& tried, Enumerate&& enumerate) {
    DWORD needed = 0;
    // Something may be added between the two calls.
    while (!enumerate(m_buffer.data(), static_cast<DWORD>(m_buffer.size()), &needed, &m_count)) {
      const DWORD error = GetLastError();
      if (error != ERROR_INSUFFICIENT_BUFFER || needed <= m_buffer.size()) throw SystemFailure(tried, error);
      m_buffer.resize(needed);
    }
  }

  const Record* begin() const { return reinterpret_cast<const Record*>(m_buffer.data()); }
  const Record* end() const { return begin() + m_count; }

 private:
  std::vector<BYTE> m_buffer = std::vector<BYTE>(sizeof(Record));
  DWORD m_count = 0;
};

}  // namespace admin
