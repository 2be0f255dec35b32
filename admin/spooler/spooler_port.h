#pragma once

#include "admin/base/failure.h"
#include "admin/spooler/spooler_printer.h"

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

// Sends a configuration request with a port's name to the monitor, through the spooler's configuration channel. When
// the spooler or the monitor refuses it, throws a SystemFailure that begins with `tried`.
void sendToMonitor(const wchar_t* command, std::wstring port, const std::string& tried);

// The monitor's ports in the spooler of this machine. Every function throws a Failure.

// In the order in which the spooler lists them.
std::vector<std::wstring> monitorPorts();
bool hasPort(const std::wstring& name);

// Why a name cannot be the name of a port; empty when it can.
std::string portNameRefusal(const std::wstring& name);

// False when it already exists.
bool addPort(const std::wstring& name);
// False when it does not exist. A port that printers use is not deleted.
bool deletePort(const std::wstring& name);
// Why a port with these printers cannot be deleted, and the remedy. A printer that is already deleted and waits for its
// last job need not be removed again.
Failure portInUse(const std::wstring& name, const std::vector<SpoolerPrinter>& users);

// "CPP" and the number of the session.
std::wstring sessionPort(unsigned session);

}  // namespace admin
