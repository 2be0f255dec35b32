#pragma once

#include <string>

namespace admin {

inline constexpr unsigned kDefaultServerPort = 4711;
inline constexpr wchar_t kModuleFile[] = L"MgPrintMon.dll";
inline constexpr wchar_t kConverterFile[] = L"ps2pdf.exe";
inline constexpr wchar_t kServerFile[] = L"aps.exe";
inline constexpr wchar_t kToolFile[] = L"mgprintmon.exe";
inline constexpr wchar_t kMonitorName[] = L"Client Printer Port";
inline constexpr wchar_t kKeyFileName[] = L"KeyFile";
inline constexpr wchar_t kFromName[] = L"From";  // of the record: the folder that it was installed from
inline constexpr wchar_t kFallbackDriverName[] = L"FallbackDriver";
inline constexpr wchar_t kEnvironment[] = L"Windows x64";

// The paths of an installation. Keys are below HKEY_LOCAL_MACHINE.
struct Places {
  std::wstring systemFolder;
  std::wstring root;        // the installation's own folder
  std::wstring dataFolder;  // of the services: keys, sessions, records of jobs, logs
  std::wstring serverService = L"aps";
  std::wstring watchService = L"mgprintmon";
  std::wstring vendorKey = L"SOFTWARE\\Quillfern";
  std::wstring eventSourceKey = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\MgPrintMon";

  std::wstring module() const { return systemFolder + L"\\" + kModuleFile; }
  std::wstring programs() const { return root + L"\\Programs"; }
  std::wstring converter() const { return programs() + L"\\" + kConverterFile; }
  std::wstring serverProgram() const { return programs() + L"\\" + kServerFile; }
  std::wstring toolProgram() const { return programs() + L"\\" + kToolFile; }
  std::wstring keyFolder() const { return dataFolder + L"\\Keys"; }
  std::wstring monitorKey() const { return keyFolder() + L"\\monitor.key"; }
  std::wstring stateFolder() const { return dataFolder + L"\\State"; }
  std::wstring serviceLogFolder() const { return dataFolder + L"\\Log"; }
  std::wstring logFolder() const { return root + L"\\Log"; }
  std::wstring logFile() const { return logFolder() + L"\\MgPrintMon.log"; }
  std::wstring productKey() const { return vendorKey + L"\\Marrowgate"; }
  std::wstring frameworkKey() const { return vendorKey + L"\\Corvane"; }
  std::wstring printersKey() const { return productKey() + L"\\Printers"; }
  std::wstring portsKey() const { return printersKey() + L"\\Ports"; }
  std::wstring driverTableKey() const { return printersKey() + L"\\Drivers"; }
  std::wstring recordKey() const { return productKey() + L"\\Installation"; }

  // The paths on this machine: the root is the given folder or, when that is empty, that of the current installation,
  // or else "Marrowgate" in the program folder. Throws a Failure when the folder cannot be used.
  static Places ofThisMachine(const std::wstring& root = {});
};

}  // namespace admin
