#include "tests/support/spooler/setup.h"

#include "tests/support/spooler/metafile.h"
#include "tests/support/spooler/monitor_table.h"
#include "tests/support/spooler/system_failure.h"
#include "util/win_handle.h"

#include <windows.h>
#include <winspool.h>

namespace mg::support {
namespace {

constexpr wchar_t kEnvironment[] = L"Windows x64";

void writeValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* data, size_t size) {
  const LSTATUS status = RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, data, static_cast<DWORD>(size));
  if (status != ERROR_SUCCESS) {
    throw SystemFailure("the registry value \"" + utf8(name) + "\" cannot be written", static_cast<DWORD>(status));
  }
}

// With the values of environment variables that it names, as each process has them that reads it.
void writePath(const wchar_t* key, const wchar_t* name, const std::wstring& path) {
  writeValue(key, name, REG_EXPAND_SZ, path.c_str(), (path.size() + 1) * sizeof(wchar_t));
}

void writeText(const wchar_t* key, const wchar_t* name, const std::wstring& text) {
  writeValue(key, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void copy(const std::wstring& from, const std::wstring& to) {
  require(CopyFileW(from.c_str(), to.c_str(), FALSE),
          "\"" + utf8(from) + "\" cannot be copied to \"" + utf8(to) + "\"");
}

// True for the errors by which the spooler says that something is registered already.
bool alreadyThere() {
  const DWORD error = GetLastError();
  return error == ERROR_PRINT_MONITOR_ALREADY_INSTALLED || error == ERROR_PRINT_PROCESSOR_ALREADY_INSTALLED ||
         error == ERROR_PRINTER_DRIVER_ALREADY_INSTALLED || error == ERROR_ALREADY_EXISTS;
}

std::wstring systemFolder() {
  wchar_t path[MAX_PATH];
  require(GetSystemDirectoryW(path, MAX_PATH) > 0, "the system folder is unknown");
  return path;
}

// A call that fills a buffer with the name of one of the spooler's folders.
template <typename Call>
std::wstring spoolerFolder(Call call, const char* what) {
  wchar_t path[MAX_PATH];
  DWORD needed = 0;
  require(call(nullptr, const_cast<wchar_t*>(kEnvironment), 1, reinterpret_cast<BYTE*>(path), sizeof path, &needed),
          what);
  return path;
}

// Sends "AddPort" to the monitor and gives its answer.
DWORD sendAddPort(std::wstring port) {
  const DWORD size = static_cast<DWORD>((port.size() + 1) * sizeof(wchar_t));
  BYTE* const name = reinterpret_cast<BYTE*>(port.data());
  const std::wstring channel = std::wstring(L",XcvMonitor ") + kMonitorName;
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
  PrinterHandle monitor;
  DWORD needed = 0;
  DWORD status = 0;
  if (OpenPrinterW(const_cast<wchar_t*>(channel.c_str()), monitor.receive(), &defaults)) {
    return XcvDataW(monitor.get(), L"AddPort", name, size, nullptr, 0, &needed, &status) ? status : GetLastError();
  }
  // A monitor may open its channel without giving a handle, as ours does. Windows passes that on; Wine's spooler takes
  // it for an invalid parameter, and then the monitor is asked without the spooler.
  if (GetLastError() != ERROR_INVALID_PARAMETER) return GetLastError();
  const MonitorTable& table = loadMonitor();
  return table.operations->pfnXcvDataPort(nullptr, L"AddPort", name, size, nullptr, 0, &needed);
}

}  // namespace

void writeSettings(const ModuleSettings& settings) {
  constexpr wchar_t kFramework[] = L"SOFTWARE\\Quillfern\\Corvane";
  if (!settings.rootPath.empty()) {
    writeText(L"SOFTWARE\\Quillfern\\Marrowgate", L"RootPath", settings.rootPath);
  }
  if (settings.serverPort != 0) {
    const DWORD port = settings.serverPort;
    writeValue(kFramework, L"Port", REG_DWORD, &port, sizeof port);
  }
  if (!settings.logFile.empty()) writePath(kFramework, L"LogFile", settings.logFile);
  if (settings.keyFile && settings.keyFile->empty()) {
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kFramework, L"KeyFile");
  } else if (settings.keyFile) {
    writeText(kFramework, L"KeyFile", *settings.keyFile);
  }
  if (!settings.ghostscript) return;
  constexpr wchar_t kConverter[] = L"SOFTWARE\\Quillfern\\Marrowgate\\Converter";
  if (settings.ghostscript->empty()) {
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kConverter, L"GhostscriptPath");
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kConverter, L"TimeLimitSeconds");
  } else {
    writeText(kConverter, L"GhostscriptPath", *settings.ghostscript);
    const DWORD seconds = settings.converterSeconds;
    writeValue(kConverter, L"TimeLimitSeconds", REG_DWORD, &seconds, sizeof seconds);
  }
}

void installMonitor(const std::wstring& folder) {
  copy(folder + L"\\MgPrintMon.dll", systemFolder() + L"\\MgPrintMon.dll");
  std::wstring name = kMonitorName;
  std::wstring environment = kEnvironment;
  std::wstring file = L"MgPrintMon.dll";
  MONITOR_INFO_2W information = {name.data(), environment.data(), file.data()};
  require(AddMonitorW(nullptr, 2, reinterpret_cast<BYTE*>(&information)) || alreadyThere(),
          "the print monitor cannot be registered");
}

void installProcessor(const std::wstring& folder) {
  const std::wstring target = spoolerFolder(GetPrintProcessorDirectoryW, "the folder of print processors is unknown");
  copy(folder + L"\\mgtestproc.dll", target + L"\\mgtestproc.dll");
  std::wstring environment = kEnvironment;
  std::wstring file = L"mgtestproc.dll";
  std::wstring name = kProcessorName;
  require(AddPrintProcessorW(nullptr, environment.data(), file.data(), name.data()) || alreadyThere(),
          "the print processor cannot be registered");
}

void addCaptureQueue() {
  addPrinterOnPort(kCaptureQueue, L"FILE:", kProcessorName);
}

void installDriver(const std::wstring& ppd) {
  const std::wstring folder = spoolerFolder(GetPrinterDriverDirectoryW, "the folder of printer drivers is unknown");
  // Wine keeps its PostScript driver among those of version 3, where registered drivers live.
  std::wstring driver = folder + L"\\3\\wineps.drv";
  std::wstring data = folder + L"\\generic.ppd";
  copy(ppd, data);
  std::wstring name = kDriverName;
  std::wstring environment = kEnvironment;
  std::wstring datatype = L"RAW";
  DRIVER_INFO_3W information = {};
  information.cVersion = 3;
  information.pName = name.data();
  information.pEnvironment = environment.data();
  information.pDriverPath = driver.data();
  information.pDataFile = data.data();
  information.pConfigFile = driver.data();
  information.pDefaultDataType = datatype.data();
  require(AddPrinterDriverExW(nullptr, 3, reinterpret_cast<BYTE*>(&information),
                              APD_COPY_NEW_FILES | APD_COPY_FROM_DIRECTORY) ||
              alreadyThere(),
          "the printer driver cannot be registered");
}

void addMonitorPort(const std::wstring& port) {
  const DWORD status = sendAddPort(port);
  if (status != ERROR_SUCCESS) throw SystemFailure("port " + utf8(port) + " cannot be added", status);
  // Wine's spooler looks for the monitor of a port in this place only.
  const std::wstring key =
      std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\") + kMonitorName + L"\\Ports\\" + port;
  RegistryKey created;
  const LSTATUS result = RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                         created.receive(), nullptr);
  if (result != ERROR_SUCCESS) {
    throw SystemFailure("port " + utf8(port) + " cannot be registered", static_cast<DWORD>(result));
  }
}

void addPrinterOnPort(const std::wstring& printer, const std::wstring& port, const std::wstring& processorName) {
  std::wstring name = printer;
  std::wstring portName = port;
  std::wstring driver = kDriverName;
  std::wstring processor = processorName.empty() ? kProcessorName : processorName;
  std::wstring datatype = L"RAW";
  PRINTER_INFO_2W information = {};
  information.pPrinterName = name.data();
  information.pPortName = portName.data();
  information.pDriverName = driver.data();
  information.pPrintProcessor = processor.data();
  information.pDatatype = datatype.data();
  PrinterHandle handle(AddPrinterW(nullptr, 2, reinterpret_cast<BYTE*>(&information)));
  if (handle) return;
  require(GetLastError() == ERROR_PRINTER_ALREADY_EXISTS, "printer \"" + utf8(printer) + "\" cannot be added");
  const std::wstring key = L"SYSTEM\\CurrentControlSet\\Control\\Print\\Printers\\" + printer;
  writeText(key.c_str(), L"Port", port);
}

void removePrinter(const std::wstring& name) {
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
  HANDLE printer = nullptr;
  require(OpenPrinterW(const_cast<wchar_t*>(name.c_str()), &printer, &defaults), "the printer cannot be opened");
  const bool isDeleted = DeletePrinter(printer) != FALSE;
  ClosePrinter(printer);
  require(isDeleted, "the printer cannot be removed");
}

}  // namespace mg::support
