#include "tests/support/admin/driver_spooler.h"

#include "tests/support/import_seam.h"

#include <winspool.h>

#include <cstring>

MG_IMPORT_SEAM(L"kernel32.dll", GetProcAddress, nullptr)
MG_PLAIN_SEAM(L"winspool.drv", DeletePrinterDriverExW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", EnumPrinterDriversW, FALSE)

namespace admin {
namespace {

// The functions for packages are called through a pointer, and so need the one that they work for.
DriverSpooler* working = nullptr;

std::wstring orNone(const wchar_t* text) {
  return text != nullptr ? text : L"(none)";
}

HRESULT WINAPI uploadPackage(LPCWSTR server, LPCWSTR package, LPCWSTR environment, DWORD flags, HWND, LPWSTR stored,
                             PULONG room) {
  working->calls.push_back(L"upload " + orNone(server) + L" " + orNone(package) + L" " + orNone(environment) + L" " +
                           std::to_wstring(flags) + L" " + std::to_wstring(*room));
  std::wcscpy(stored, L"C:\\store\\driver.inf");
  return working->uploadResult;
}

HRESULT WINAPI installPackage(LPCWSTR server, LPCWSTR package, LPCWSTR name, LPCWSTR environment, DWORD flags) {
  working->calls.push_back(L"install " + orNone(server) + L" " + orNone(package) + L" " + orNone(name) + L" " +
                           orNone(environment) + L" " + std::to_wstring(flags));
  if (SUCCEEDED(working->installResult)) working->installed.push_back({name, working->packageVersion, 0, L"", {}});
  return working->installResult;
}

template <class Function>
FARPROC asFunction(Function* function) {
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

}  // namespace

DriverSpooler::DriverSpooler() {
  EnumPrinterDriversWSeam.replacement = [this](LPWSTR, LPWSTR environment, DWORD level, LPBYTE buffer, DWORD size,
                                               LPDWORD needed, LPDWORD count) -> WINBOOL {
    if (level == 8 && std::wcscmp(environment, L"Windows x64") == 0) return writeList(buffer, size, needed, count);
    SetLastError(ERROR_INVALID_LEVEL);
    return FALSE;
  };
  DeletePrinterDriverExWSeam.replacement = [this](LPWSTR, LPWSTR, LPWSTR name, DWORD, DWORD) -> WINBOOL {
    if (inUse.count(name) != 0) {
      SetLastError(ERROR_PRINTER_DRIVER_IN_USE);
      return FALSE;
    }
    if (std::erase_if(installed, [name](const PrinterDriver& driver) { return driver.name == name; }) == 1) return TRUE;
    SetLastError(ERROR_UNKNOWN_PRINTER_DRIVER);
    return FALSE;
  };
}

void hideWine() {
  GetProcAddressSeam.concerns = [](HMODULE, LPCSTR name) {
    return reinterpret_cast<ULONG_PTR>(name) > 0xFFFF && std::strcmp(name, "wine_get_version") == 0;
  };
  GetProcAddressSeam.replacement = [](HMODULE, LPCSTR) -> FARPROC { return nullptr; };
}

void DriverSpooler::takePackages(unsigned version) {
  working = this;
  packageVersion = version;
  GetProcAddressSeam.concerns = [](HMODULE, LPCSTR name) {
    // A function may be asked for by its number, too.
    return reinterpret_cast<ULONG_PTR>(name) > 0xFFFF && std::strstr(name, "PrinterDriver") != nullptr;
  };
  GetProcAddressSeam.replacement = [](HMODULE, LPCSTR name) -> FARPROC {
    if (std::strcmp(name, "UploadPrinterDriverPackageW") == 0) return asFunction(&uploadPackage);
    return std::strcmp(name, "InstallPrinterDriverFromPackageW") == 0 ? asFunction(&installPackage) : nullptr;
  };
}

bool DriverSpooler::writeList(BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
  *needed = static_cast<DWORD>(installed.size() * sizeof(DRIVER_INFO_8W));
  if (size < *needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return false;
  }
  m_parts.assign(installed.size(), L"");
  *count = 0;
  for (PrinterDriver& driver : installed) {
    std::wstring& parts = m_parts[*count];
    for (const std::wstring& part : driver.parts)
      parts += part + L'\0';
    auto& record = reinterpret_cast<DRIVER_INFO_8W*>(buffer)[(*count)++];
    record = {};
    record.cVersion = driver.version;
    record.pName = driver.name.data();
    record.pDriverPath = driver.file.data();
    record.pDependentFiles = parts.data();
    record.dwPrinterDriverAttributes = driver.attributes;
  }
  return true;
}

}  // namespace admin
