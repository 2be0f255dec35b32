#include "tests/identity/identity_watch.h"

#include "corvane/base/text.h"

#include <winspool.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <rpc.h>
#include <utility>

MG_IMPORT_SEAM(L"advapi32.dll", GetUserNameW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegDeleteValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegEnumValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegGetValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExA, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExA, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegSetValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegisterEventSourceW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", ReportEventW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", DeregisterEventSource, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateEventW, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", CreateFileA, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateFileW, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateProcessA, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", DeleteFileW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", FindFirstFileW, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", GetFileAttributesW, INVALID_FILE_ATTRIBUTES)
MG_IMPORT_SEAM(L"kernel32.dll", MoveFileExW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", OpenEventW, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", SetFileInformationByHandle, FALSE)
MG_PLAIN_SEAM(L"msvcrt.dll", fopen, nullptr)
MG_IMPORT_SEAM(L"rpcrt4.dll", RpcImpersonateClient, RPC_S_NO_CALL_ACTIVE)
MG_IMPORT_SEAM(L"rpcrt4.dll", RpcRevertToSelf, RPC_S_NO_CALL_ACTIVE)
MG_IMPORT_SEAM(L"user32.dll", MessageBoxW, 0)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", SetJobA, FALSE)

namespace {

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x7770001);

std::wstring logName() {
  wchar_t folder[MAX_PATH] = L"";
  GetTempPathW(MAX_PATH, folder);
  return folder + (L"identity-" + std::to_wstring(GetCurrentProcessId()) + L".log");
}

std::string lastPart(const std::string& path) {
  return path.substr(path.rfind('\\') + 1);
}

}  // namespace

IdentityWatch::IdentityWatch(std::uint16_t serverPort) : m_port(serverPort), m_log(logName()) {
  watchRegistry();
  watchSettings();
  watchFiles();
  watchLeftovers();
  watchQueue();
  watchRest();
}

IdentityWatch::~IdentityWatch() {
  DeleteFileW(m_log.c_str());
  DeleteFileW((m_log + L".1").c_str());
}

LONGLONG IdentityWatch::token() {
  HANDLE token = nullptr;
  if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token)) return 0;
  TOKEN_STATISTICS statistics{};
  DWORD size = 0;
  GetTokenInformation(token, TokenStatistics, &statistics, sizeof statistics, &size);
  CloseHandle(token);
  return (static_cast<LONGLONG>(statistics.TokenId.HighPart) << 32) + statistics.TokenId.LowPart;
}

std::set<std::string> IdentityWatch::take() {
  return std::exchange(m_seen, {});
}

void IdentityWatch::note(const std::string& what) {
  if (GetCurrentThreadId() == m_thread) m_seen.insert((token() == 0 ? "process: " : "user: ") + what);
}

void IdentityWatch::watchRegistry() {
  RegCreateKeyExWSeam.watch = [this](HKEY, LPCWSTR name, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY,
                                     LPDWORD) { note("key made " + lastPart(corvane::toUtf8(name))); };
  GetUserNameWSeam.watch = [this](LPWSTR, LPDWORD) { note("name asked for"); };
  RegDeleteValueWSeam.watch = [this](HKEY, LPCWSTR) { note("value deleted"); };
  RegEnumValueWSeam.watch = [this](HKEY, DWORD, LPWSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
    note("values listed");
  };
  RegOpenKeyExASeam.watch = [this](HKEY, LPCSTR name, DWORD, REGSAM, PHKEY) { note("key opened " + lastPart(name)); };
  RegOpenKeyExWSeam.watch = [this](HKEY, LPCWSTR name, DWORD, REGSAM, PHKEY) {
    note("key opened " + lastPart(corvane::toUtf8(name)));
  };
  RegQueryValueExASeam.watch = [this](HKEY, LPCSTR name, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
    note(std::string("value read ") + name);
  };
  RegQueryValueExWSeam.watch = [this](HKEY, LPCWSTR name, LPDWORD, LPDWORD, LPBYTE, LPDWORD) {
    note("value read " + corvane::toUtf8(name));
  };
  RegSetValueExWSeam.watch = [this](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) { note("value written"); };
}

void IdentityWatch::watchSettings() {
  RegGetValueWSeam.watch = [this](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID, LPDWORD) {
    note("setting read " + corvane::toUtf8(name));
  };
  RegGetValueWSeam.replacement = [this](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID data, LPDWORD) -> LSTATUS {
    const auto text = [&](const std::wstring& value) -> LSTATUS {
      if (value.empty()) return ERROR_FILE_NOT_FOUND;
      std::wcscpy(static_cast<wchar_t*>(data), value.c_str());
      return ERROR_SUCCESS;
    };
    const auto number = [&](DWORD value) -> LSTATUS {
      std::memcpy(data, &value, sizeof value);
      return ERROR_SUCCESS;
    };
    if (std::wcscmp(name, L"LogFile") == 0) return text(m_log);
    if (std::wcscmp(name, L"KeyFile") == 0) return text(m_keyFile);
    if (std::wcscmp(name, L"Port") == 0) return number(m_port);
    if (std::wcscmp(name, L"LogLimit") == 0) return number(1);  // so that every line finds the file full
    return ERROR_FILE_NOT_FOUND;
  };
  // Where it is installed is read; a converter would be looked for below it.
  RegQueryValueExWSeam.replacement = [](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE data, LPDWORD) -> LSTATUS {
    std::wcscpy(reinterpret_cast<wchar_t*>(data), L"Z:\\no such folder");
    return ERROR_SUCCESS;
  };
  RegOpenKeyExASeam.replacement = [](HKEY, LPCSTR, DWORD, REGSAM, PHKEY key) -> LSTATUS {
    return RegOpenKeyExWSeam.real(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_READ, key);
  };
}

void IdentityWatch::watchFiles() {
  const auto kind = [this](const std::wstring& path) -> std::string {
    if (path == m_log) return "log";
    if (!m_keyFile.empty() && path == m_keyFile) return "key file";
    return "file";
  };
  CreateFileWSeam.watch = [this, kind](LPCWSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    note(kind(path) + " opened");
  };
  GetFileAttributesWSeam.watch = [this, kind](LPCWSTR path) { note(kind(path) + " looked at"); };
  MoveFileExWSeam.watch = [this, kind](LPCWSTR path, LPCWSTR, DWORD) { note(kind(path) + " renamed"); };
  CreateFileASeam.watch = [this](LPCSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    note("opened *" + std::string(path).substr(std::string(path).rfind('.')));
  };
  fopenSeam.watch = [this](const char* path, const char*) {
    note("opened *" + std::string(path).substr(std::string(path).rfind('.')));
  };
  DeleteFileWSeam.watch = [this](LPCWSTR path) {
    const std::string name = corvane::toUtf8(path);
    note("deleted *" + name.substr(name.rfind('.')));
  };
  CreateProcessASeam.watch = [this](LPCSTR, LPSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, WINBOOL, DWORD, LPVOID,
                                    LPCSTR, LPSTARTUPINFOA, LPPROCESS_INFORMATION) { note("converter started"); };
}

void IdentityWatch::watchLeftovers() {
  FindFirstFileWSeam.watch = [this](LPCWSTR, LPWIN32_FIND_DATAW) { note("leftover files looked for"); };
  SetFileInformationByHandleSeam.watch = [this](HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD) {
    note("leftover file removed");
  };
  OpenEventWSeam.watch = [this](DWORD, WINBOOL, LPCWSTR) { note("mark looked for"); };
  CreateEventWSeam.watch = [this](LPSECURITY_ATTRIBUTES, WINBOOL, WINBOOL, LPCWSTR name) {
    if (name != nullptr) note("mark made");
  };
}

void IdentityWatch::watchQueue() {
  OpenPrinterWSeam.replacement = [this](LPWSTR, LPHANDLE out, LPPRINTER_DEFAULTSW) -> WINBOOL {
    note("printer opened");
    *out = kPrinter;
    return TRUE;
  };
  GetJobWSeam.replacement = [this](HANDLE, DWORD, DWORD, LPBYTE buffer, DWORD, LPDWORD needed) -> WINBOOL {
    note("job asked for");
    *needed = sizeof(JOB_INFO_2W);
    if (buffer != nullptr) std::memset(buffer, 0, sizeof(JOB_INFO_2W));
    return buffer != nullptr;
  };
  SetJobASeam.replacement = [this](HANDLE, DWORD, DWORD, LPBYTE, DWORD) -> WINBOOL {
    note("job controlled");
    return TRUE;
  };
  ClosePrinterSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
}

void IdentityWatch::watchRest() {
  RegisterEventSourceWSeam.replacement = [this](LPCWSTR, LPCWSTR) -> HANDLE {
    note("event log opened");
    return kPrinter;
  };
  ReportEventWSeam.replacement = [this](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCWSTR*, LPVOID) -> WINBOOL {
    note("event written");
    return TRUE;
  };
  DeregisterEventSourceSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
  MessageBoxWSeam.replacement = [](HWND, LPCWSTR, LPCWSTR, UINT) -> int { return IDOK; };
  RpcImpersonateClientSeam.replacement = [](RPC_BINDING_HANDLE) -> RPC_STATUS { return RPC_S_OK; };
  RpcRevertToSelfSeam.replacement = []() -> RPC_STATUS { return RPC_S_OK; };
}
