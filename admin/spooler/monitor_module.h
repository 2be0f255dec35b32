#pragma once

#include <windows.h>
#include <winspool.h>
// winsplp.h needs the declarations of winspool.h.
#include <winsplp.h>

#include <optional>
#include <string>
#include <vector>

namespace admin {

// The installed MgPrintMon.dll, loaded into this process and initialised as by a spooler, because its exports use the
// list of ports, which only initialisation makes. It stays loaded. All operations throw a Failure.
//
// The module retries forever until the application server answers, so callers check first that it is there.
class MonitorModule {
 public:
  // The instance of this process; the first call loads it.
  static MonitorModule& get();

  // The function table that a spooler gets.
  MONITOR2& operations() { return *m_operations; }
  // The names of the session's client printers; false when the module cannot deliver them, without a port or an answer.
  bool cachedPrinters(unsigned session, std::vector<std::wstring>& names);
  bool showPrinter(unsigned session, const std::wstring& printer);

 private:
  MonitorModule();
  void* function(const char* name) const;

  HMODULE m_module = nullptr;
  MONITOR2* m_operations = nullptr;
};

// The print monitor's registration with the spooler of this machine.

// Works without a running spooler, too: then the registry is read.
bool isMonitorRegistered();
// The file that the registry has for it, a name in the system folder; nothing when it has none.
std::optional<std::wstring> registeredMonitorFile();
// Throws a SystemFailure; succeeds when it is already registered.
void registerMonitor();
// Throws a SystemFailure; succeeds when it is not registered.
void unregisterMonitor();

// The last lines of the module's log that report a failure, oldest first; empty when the file does not exist or cannot
// be read.
std::vector<std::string> failuresInLog(const std::wstring& path, std::size_t most);

// The same for a text: records that say "failure", "exception" or "connection".
std::vector<std::string> failuresInText(const std::string& text, std::size_t most);

}  // namespace admin
