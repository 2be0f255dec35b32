#pragma once

#include <windows.h>
#include <winspool.h>
// winsplp.h wants the declarations of winspool.h first.
#include <winsplp.h>

#include <string>
#include <vector>

namespace admin {

// The installed MgPrintMon.dll, loaded into this process and initialised as a spooler does: its exports look at the
// list of ports, which only that makes. It stays loaded. All operations throw a Failure.
//
// The module asks the application server without end until it answers, so callers find out first that it is there.
class MonitorModule {
 public:
  // The one of this process; loaded by the first call.
  static MonitorModule& get();

  // The operations that a spooler gets.
  MONITOR2& operations() { return *m_operations; }
  // The names of the session's client printers; false when the module does not deliver them, for want of a port or of
  // an answer.
  bool cachedPrinters(unsigned session, std::vector<std::wstring>& names);
  bool showPrinter(unsigned session, const std::wstring& printer);

 private:
  MonitorModule();
  void* function(const char* name) const;

  HMODULE m_module = nullptr;
  MONITOR2* m_operations = nullptr;
};

// The print monitor's registration with the spooler of this machine.

// Also when the spooler is not running: then the registry says it.
bool isMonitorRegistered();
// Throws a SystemFailure; fine when it is registered already.
void registerMonitor();
// Throws a SystemFailure; fine when it is not registered.
void unregisterMonitor();

// The last lines of the module's log that tell of a failure, oldest first; empty when the file is not there or cannot
// be read.
std::vector<std::string> failuresInLog(const std::wstring& path, std::size_t most);

// The same for a text: records that say "failure", "exception" or "connection".
std::vector<std::string> failuresInText(const std::string& text, std::size_t most);

}  // namespace admin
