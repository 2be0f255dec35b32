#include "admin/spooler/printer_driver.h"

#include "admin/base/failure.h"
#include "admin/base/places.h"
#include "admin/spooler/spooler_list.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>
#include <winspool.h>

#include <fmt/format.h>

namespace admin {
namespace {

// The first version whose drivers render from XPS.
constexpr unsigned kFilterVersion = 4;
// Attributes of DRIVER_INFO_8 that the cross compiler's header does not have.
constexpr unsigned kXpsAttribute = 2;
constexpr unsigned kClassAttribute = 8;     // only drivers of version 4 are class drivers,
constexpr unsigned kDerivedAttribute = 16;  // or derived from one

constexpr wchar_t kXpsRenderer[] = L"mxdwdrv.dll";
// The file in which a driver lists its filters must be named so.
constexpr wchar_t kPipelineEnd[] = L"-pipelineconfig.xml";

bool isSameName(const std::wstring& one, const std::wstring& other) {
  return CompareStringOrdinal(one.c_str(), -1, other.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::wstring nameOfFile(const std::wstring& path) {
  return path.substr(path.find_last_of(L"\\/") + 1);
}

bool isPipeline(const std::wstring& file) {
  const std::size_t length = std::size(kPipelineEnd) - 1;
  return file.size() > length && isSameName(file.substr(file.size() - length), kPipelineEnd);
}

PrinterDriver describe(const DRIVER_INFO_8W& record) {
  PrinterDriver driver;
  driver.name = textOf(record.pName);
  driver.version = record.cVersion;
  driver.attributes = record.dwPrinterDriverAttributes;
  driver.file = textOf(record.pDriverPath);
  for (const wchar_t* part : {record.pDataFile, record.pConfigFile}) {
    if (part != nullptr && *part != 0) driver.parts.emplace_back(part);
  }
  for (const wchar_t* part = record.pDependentFiles; part != nullptr && *part != 0;
       part += driver.parts.back().size() + 1)
    driver.parts.emplace_back(part);
  return driver;
}

}  // namespace

std::string PrinterDriver::signOfXps() const {
  if (version >= kFilterVersion) return fmt::format("version {}", version);
  if ((attributes & (kClassAttribute | kDerivedAttribute)) != 0) return "a class driver";
  if (isSameName(nameOfFile(file), kXpsRenderer)) return corvane::toUtf8(kXpsRenderer);
  for (const std::wstring& part : parts) {
    if (isPipeline(part)) return programs::oneLine(nameOfFile(part));
  }
  return (attributes & kXpsAttribute) != 0 ? "marked as an XPS driver" : "";
}

std::string obstacleOf(const PrinterDriver& driver) {
  const std::string sign = driver.signOfXps();
  if (sign.empty()) return {};
  return fmt::format("{} sends XPS and cannot be used ({})", programs::quoted(driver.name), sign);
}

std::vector<PrinterDriver> installedDrivers() {
  const SpoolerList<DRIVER_INFO_8W> list(
      "the printer drivers cannot be listed", [](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
        return EnumPrinterDriversW(nullptr, const_cast<wchar_t*>(kEnvironment), 8, buffer, size, needed, count);
      });
  std::vector<PrinterDriver> drivers;
  for (const DRIVER_INFO_8W& record : list)
    drivers.push_back(describe(record));
  return drivers;
}

const PrinterDriver* findDriver(const std::vector<PrinterDriver>& drivers, const std::wstring& name) {
  for (const PrinterDriver& driver : drivers) {
    if (isSameName(driver.name, name)) return &driver;
  }
  return nullptr;
}

const PrinterDriver& requireDriver(const std::vector<PrinterDriver>& drivers, const std::wstring& name) {
  const PrinterDriver* const found = findDriver(drivers, name);
  if (found == nullptr) {
    throw Failure(ExitCode::kNotFound, fmt::format("the printer driver {} is not installed", programs::quoted(name)),
                  "Install it (in PowerShell: Add-PrinterDriver -Name NAME), or name its package with mgprintmon "
                  "install --driver NAME --driver-package INF; \"mgprintmon drivers\" shows those that are there.");
  }
  const std::string obstacle = obstacleOf(*found);
  if (!obstacle.empty()) {
    throw Failure(ExitCode::kFailed, fmt::format("the printer driver {}", obstacle),
                  "Name a driver of version 3 that sends PostScript; \"mgprintmon drivers\" shows which can be used.");
  }
  return *found;
}

namespace {

using Upload = HRESULT(WINAPI*)(LPCWSTR, LPCWSTR, LPCWSTR, DWORD, HWND, LPWSTR, PULONG);
using Install = HRESULT(WINAPI*)(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, DWORD);

constexpr DWORD kSilent = 1;  // UPDP_SILENT_UPLOAD
constexpr DWORD kMostPath = 1024;

template <class Function>
Function spoolerFunction(const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"winspool.drv"), name)));
}

void requireTaken(HRESULT result, const std::string& tried) {
  if (SUCCEEDED(result)) return;
  const bool isWindows = HRESULT_FACILITY(result) == FACILITY_WIN32;
  throw SystemFailure(tried, isWindows ? static_cast<DWORD>(HRESULT_CODE(result)) : static_cast<DWORD>(result));
}

}  // namespace

void addDriverFromPackage(const std::wstring& package, const std::wstring& name) {
  wchar_t full[kMostPath];
  const DWORD length = GetFullPathNameW(package.c_str(), kMostPath, full, nullptr);
  if (length == 0 || length >= kMostPath || GetFileAttributesW(full) == INVALID_FILE_ATTRIBUTES) {
    throw Failure(ExitCode::kNotFound, fmt::format("the driver package {} does not exist", programs::quoted(package)),
                  "Name the .inf file of the driver's package.");
  }
  const auto upload = spoolerFunction<Upload>("UploadPrinterDriverPackageW");
  const auto install = spoolerFunction<Install>("InstallPrinterDriverFromPackageW");
  if (upload == nullptr || install == nullptr) {
    throw Failure(ExitCode::kFailed, "the spooler of this system adds no driver from a package",
                  "Add the driver with pnputil /add-driver INF /install and rundll32 printui.dll,PrintUIEntry /ia /m "
                  "NAME /f INF, and run this again with --driver alone.");
  }
  wchar_t stored[kMostPath];
  ULONG room = kMostPath;
  requireTaken(upload(nullptr, full, kEnvironment, kSilent, nullptr, stored, &room),
               fmt::format("the driver package {} is not taken", programs::quoted(package)));
  requireTaken(
      install(nullptr, stored, name.c_str(), kEnvironment, 0),
      fmt::format("the printer driver {} is not added from {}", programs::quoted(name), programs::quoted(package)));
}

bool deleteDriver(const std::wstring& name) {
  if (DeletePrinterDriverExW(nullptr, const_cast<wchar_t*>(kEnvironment), const_cast<wchar_t*>(name.c_str()),
                             DPD_DELETE_UNUSED_FILES, 0)) {
    return true;
  }
  const DWORD error = GetLastError();
  if (error == ERROR_PRINTER_DRIVER_IN_USE) return false;
  if (error == ERROR_UNKNOWN_PRINTER_DRIVER) return true;
  throw SystemFailure(fmt::format("the printer driver {} cannot be deleted", programs::quoted(name)), error);
}

}  // namespace admin
