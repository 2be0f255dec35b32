#pragma once

#include "admin/base/failure.h"
#include "admin/spooler/spooler_printer.h"

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

// Sends a configuration request with a port's name to the monitor, through the spooler's channel for that. Throws a
// SystemFailure that begins with what was tried when the spooler or the monitor refuses it.
void sendToMonitor(const wchar_t* command, std::wstring port, const std::string& tried);

// The monitor's ports as the spooler of this machine has them. Everything throws a Failure.

// In the order in which the spooler lists them.
std::vector<std::wstring> monitorPorts();
bool hasPort(const std::wstring& name);

// Why a name cannot be a port's; empty when it can.
std::string portNameRefusal(const std::wstring& name);

// False when it is there already.
bool addPort(const std::wstring& name);
// False when it is not there. Printers that use it keep it from being deleted.
bool deletePort(const std::wstring& name);
// Why a port with these printers cannot be deleted, and what to do. One that has been deleted itself and waits for its
// last job is not to be removed once more.
Failure portInUse(const std::wstring& name, const std::vector<SpoolerPrinter>& users);

// "CPP" and the number of the session.
std::wstring sessionPort(unsigned session);

}  // namespace admin
