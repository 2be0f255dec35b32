#include "tests/support/admin/installation_fixture.h"

#include "admin/base/registry_value.h"
#include "corvane/base/text.h"
#include "tests/support/admin/access_lists.h"
#include "util/win_handle.h"

#include <algorithm>

MG_IMPORT_SEAM(L"advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegDeleteKeyW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegDeleteValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegSetValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"kernel32.dll", CreateFileW, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", DeleteFileW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", FlushFileBuffers, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", GetFileAttributesW, INVALID_FILE_ATTRIBUTES)
MG_IMPORT_SEAM(L"kernel32.dll", MoveFileExW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", ReadFile, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", RemoveDirectoryW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", WriteFile, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", AddMonitorW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", DeleteMonitorW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", EnumMonitorsW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", EnumPortsW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", EnumPrintersW, FALSE)

namespace admin {
namespace {

constexpr wchar_t kTestKey[] = L"SOFTWARE\\MgAdminTest";

void listKey(const std::wstring& key, std::set<std::string>& lines) {
  lines.insert("key " + corvane::toUtf8(key));
  mg::RegistryKey opened;
  RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.receive());
  for (DWORD index = 0;; ++index) {
    wchar_t name[256];
    DWORD nameSize = 256;
    BYTE data[4096];
    DWORD size = sizeof data;
    DWORD type = 0;
    if (RegEnumValueW(opened.get(), index, name, &nameSize, nullptr, &type, data, &size) != ERROR_SUCCESS) break;
    std::string line = "value " + corvane::toUtf8(key) + "\\" + corvane::toUtf8(name) + " " + std::to_string(type);
    for (DWORD i = 0; i < size; ++i)
      line += data[i] >= ' ' && data[i] < 127 ? std::string(1, static_cast<char>(data[i])) : std::string();
    lines.insert(line);
  }
  for (const std::wstring& name : subkeys(key))
    listKey(key + L"\\" + name, lines);
}

}  // namespace

InstallationTest::InstallationTest() {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kTestKey);
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, kTestKey);
  createKey(kTestKey);
  for (const wchar_t* name : {L"system", L"setup", L"programs"})
    std::filesystem::create_directories(folder.file(name));
  TemporaryFolder::write(folder.file(L"setup\\ps2pdf.exe"), "a converter");
  offer("4.0.1.0");
  places.systemFolder = folder.file(L"system");
  places.root = folder.file(L"programs\\Marrowgate");
  places.vendorKey = std::wstring(kTestKey) + L"\\Vendor";
  places.eventSourceKey = std::wstring(kTestKey) + L"\\EventLog\\Application\\MgPrintMon";
  places.dataFolder = folder.file(L"data");
  request.from = folder.file(L"setup");
  request.services = request.keys = false;
  replaceSpooler();
  replacePrinters();
}

InstallationTest::~InstallationTest() {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kTestKey);
  RegDeleteKeyW(HKEY_LOCAL_MACHINE, kTestKey);
}

std::wstring InstallationTest::moduleOfVersion(const std::string& version) {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return (std::filesystem::path(path).parent_path() / ("admin_module_" + version + ".dll")).wstring();
}

void InstallationTest::offer(const std::string& version) {
  std::filesystem::copy_file(moduleOfVersion(version), folder.file(L"setup\\MgPrintMon.dll"),
                             std::filesystem::copy_options::overwrite_existing);
}

void InstallationTest::offerPrograms(const std::string& content) {
  for (const wchar_t* program : {kServerFile, kToolFile})
    TemporaryFolder::write(folder.file(std::wstring(L"setup\\") + program), content);
}

void InstallationTest::wantServices() {
  offerPrograms("a program");
  request.services = request.keys = true;
}

void InstallationTest::replaceSpooler() {
  EnumMonitorsWSeam.replacement = [this](LPWSTR, DWORD, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD count) {
    *needed = static_cast<DWORD>(monitors.size() * sizeof(MONITOR_INFO_2W));
    if (size < *needed) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    *count = 0;
    for (const std::wstring& name : monitors)
      reinterpret_cast<MONITOR_INFO_2W*>(buffer)[(*count)++].pName = const_cast<wchar_t*>(name.c_str());
    return TRUE;
  };
  AddMonitorWSeam.replacement = [this](LPWSTR, DWORD, LPBYTE information) {
    monitors.insert(reinterpret_cast<MONITOR_INFO_2W*>(information)->pName);
    return TRUE;
  };
  DeleteMonitorWSeam.replacement = [this](LPWSTR, LPWSTR, LPWSTR name) {
    if (monitors.erase(name) == 1) return TRUE;
    SetLastError(ERROR_UNKNOWN_PRINT_MONITOR);
    return FALSE;
  };
  EnumPortsWSeam.replacement = [this](LPWSTR, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD count) {
    EXPECT_EQ(level, 2u);
    *needed = static_cast<DWORD>(ports.size() * sizeof(PORT_INFO_2W));
    if (size < *needed) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    *count = 0;
    for (std::wstring& name : ports)
      reinterpret_cast<PORT_INFO_2W*>(buffer)[(*count)++] = {name.data(), portMonitor.data(), nullptr, 0, 0};
    return TRUE;
  };
}

void InstallationTest::replacePrinters() {
  EnumPrintersWSeam.replacement = [this](DWORD, LPWSTR, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                                         LPDWORD count) {
    EXPECT_EQ(level, 2u);
    *needed = static_cast<DWORD>(printers.size() * sizeof(PRINTER_INFO_2W));
    if (size < *needed) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    *count = static_cast<DWORD>(printers.size());
    std::copy(printers.begin(), printers.end(), reinterpret_cast<PRINTER_INFO_2W*>(buffer));
    return TRUE;
  };
}

void InstallationTest::holdModule() {
  CreateFileWSeam.concerns = [this](LPCWSTR path, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    return path == places.module() && (access & DELETE) != 0;
  };
  CreateFileWSeam.fail(1, INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION);
}

void InstallationTest::fillDisk() {
  WriteFileSeam.replacement = [](HANDLE file, LPCVOID data, DWORD size, LPDWORD written, LPOVERLAPPED) {
    return decltype(WriteFileSeam)::real(file, data, size / 2, written, nullptr);
  };
}

void InstallationTest::refuseMonitor(DWORD error) {
  AddMonitorWSeam.replacement = nullptr;
  AddMonitorWSeam.fail(1, FALSE, error);
}

void InstallationTest::denyFolders() {
  refuseFolder();
}

std::set<std::string> InstallationTest::listing() const {
  std::set<std::string> lines;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.file(L"."))) {
    const std::string path = corvane::toUtf8(entry.path().wstring());
    lines.insert(entry.is_directory()
                     ? "folder " + path
                     : "file " + path + " " +
                           std::to_string(std::hash<std::string>()(TemporaryFolder::read(entry.path().wstring()))));
  }
  listKey(kTestKey, lines);
  for (const std::wstring& monitor : monitors)
    lines.insert("monitor " + corvane::toUtf8(monitor));
  for (const PrinterDriver& driver : drivers.installed)
    lines.insert("driver " + corvane::toUtf8(driver.name));
  lines.merge(services.listing());
  return lines;
}

std::string InstallationTest::difference(const std::set<std::string>& before, const std::set<std::string>& after) {
  std::string text;
  for (const std::string& line : before)
    text += after.count(line) == 0 ? "- " + line + "\n" : "";
  for (const std::string& line : after)
    text += before.count(line) == 0 ? "+ " + line + "\n" : "";
  return text;
}

}  // namespace admin
