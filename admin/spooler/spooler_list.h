#pragma once

#include "admin/base/failure.h"

#include <windows.h>

#include <string>
#include <vector>

namespace admin {

// The result of one of the spooler's Enum... calls: records of one type, followed by their texts in the same buffer.
// The call gets the buffer, its size, and pointers for the size needed and the number of records. Throws a
// SystemFailure.
template <class Record>
class SpoolerList {
 public:
  template <class Enumerate>
  SpoolerList(const std::string& tried, Enumerate&& enumerate) {
    DWORD needed = 0;
    // An entry may be added between two calls.
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

// A text of such a record, which may be none.
inline std::wstring textOf(const wchar_t* text) {
  return text != nullptr ? text : std::wstring();
}

}  // namespace admin
