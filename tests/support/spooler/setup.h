#pragma once

#include <optional>
#include <string>

namespace mg::support {

inline constexpr wchar_t kMonitorName[] = L"Client Printer Port";
inline constexpr wchar_t kProcessorName[] = L"mgtestproc";
inline constexpr wchar_t kDriverName[] = L"Generic PostScript";

// What the registry of the prefix tells the module. An empty text or 0 leaves a value as it is.
struct ModuleSettings {
  // Installation root: the folder above "Programs\ps2pdf.exe".
  std::wstring rootPath;
  // TCP port of the application server.
  unsigned serverPort = 0;
  // The file that the module writes its records to; it may name environment variables of the process ("%NAME%").
  std::wstring logFile;
  // The file with the monitor's key; an empty text takes the value away, none at all leaves it as it is.
  std::optional<std::wstring> keyFile;
  // The converter's Ghostscript, and the longest time of one conversion; an empty text takes both values away, none at
  // all leaves them as they are.
  std::optional<std::wstring> ghostscript;
  unsigned converterSeconds = 0;
};

// Each of these may be called again when its work is done already, and throws a SystemFailure.

// Writes the settings under HKEY_LOCAL_MACHINE "SOFTWARE\Quillfern".
void writeSettings(const ModuleSettings& settings);

// Copies MgPrintMon.dll from `folder` into the system folder and registers the monitor. A newer build of the module
// replaces the copy.
void installMonitor(const std::wstring& folder);

// Copies mgtestproc.dll from `folder` to where the spooler keeps print processors and registers it.
void installProcessor(const std::wstring& folder);

// Registers the driver "Generic PostScript": Wine's PostScript driver with `ppd` as its data file.
void installDriver(const std::wstring& ppd);

// Adds the queue on which metafiles become PostScript (metafile.h); behind processor and driver.
void addCaptureQueue();

// Adds a port of the monitor through its configuration channel, and the key by which Wine's spooler finds it.
void addMonitorPort(const std::wstring& port);

// Adds a printer with our driver and print processor on a port, or moves it to that port.
void addPrinterOnPort(const std::wstring& printer, const std::wstring& port, const std::wstring& processorName = L"");
void removePrinter(const std::wstring& name);

}  // namespace mg::support
