#include "tests/sweeps/windows_seams.h"

// Before the seams: some names are defined here for ws2tcpip's inline functions as well.
#include "tests/support/import_seam.h"
#include "tests/sweeps/ledger.h"
#include "tests/sweeps/quick_converter.h"

#include <winsock2.h>
#include <winspool.h>
#include <ws2tcpip.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <rpc.h>

// The run time's header marks fwrite with an attribute that is not part of its type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

MG_IMPORT_SEAM(L"advapi32.dll", DeregisterEventSource, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", RegCloseKey, ERROR_INVALID_HANDLE)
MG_IMPORT_SEAM(L"advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegDeleteValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegEnumValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegGetValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExA, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryInfoKeyA, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExA, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegSetValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegisterEventSourceW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", ReportEventW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", RevertToSelf, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", CloseHandle, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateEventW, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", CreateFileA, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateFileW, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateProcessA, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", DeleteFileW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", FindClose, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", FindFirstFileW, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", FindNextFileW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", GetFileInformationByHandle, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", GetModuleFileNameW, 0)
MG_IMPORT_SEAM(L"kernel32.dll", GetModuleHandleA, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", GetModuleHandleW, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", GetProcAddress, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", GetTempPathW, 0)
MG_IMPORT_SEAM(L"kernel32.dll", GetTickCount, 0)
MG_IMPORT_SEAM(L"kernel32.dll", MultiByteToWideChar, 0)
MG_IMPORT_SEAM(L"kernel32.dll", OpenEventW, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", SetFileInformationByHandle, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", Sleep, 0)
MG_IMPORT_SEAM(L"kernel32.dll", WaitForSingleObject, WAIT_FAILED)
MG_IMPORT_SEAM(L"kernel32.dll", WideCharToMultiByte, 0)
MG_IMPORT_SEAM(L"msvcrt.dll", _wcsdup, nullptr)
MG_PLAIN_SEAM(L"msvcrt.dll", fclose, EOF)
MG_PLAIN_SEAM(L"msvcrt.dll", fflush, EOF)
MG_PLAIN_SEAM(L"msvcrt.dll", fopen, nullptr)
MG_PLAIN_SEAM(L"msvcrt.dll", fread, 0)
MG_PLAIN_SEAM(L"msvcrt.dll", fseek, -1)
MG_PLAIN_SEAM(L"msvcrt.dll", ftell, -1)
MG_PLAIN_SEAM(L"msvcrt.dll", fwrite, 0)
MG_IMPORT_SEAM(L"rpcrt4.dll", RpcImpersonateClient, RPC_S_NO_CALL_ACTIVE)
MG_IMPORT_SEAM(L"rpcrt4.dll", RpcRevertToSelf, RPC_S_NO_CALL_ACTIVE)
MG_IMPORT_SEAM(L"user32.dll", MessageBoxW, 0)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", SetJobA, FALSE)
MG_IMPORT_SEAM(L"ws2_32.dll", WSARecv, SOCKET_ERROR)
MG_IMPORT_SEAM(L"ws2_32.dll", WSASend, SOCKET_ERROR)
MG_IMPORT_SEAM(L"ws2_32.dll", closesocket, SOCKET_ERROR)
MG_IMPORT_SEAM(L"ws2_32.dll", connect, SOCKET_ERROR)
MG_IMPORT_SEAM(L"ws2_32.dll", getaddrinfo, WSAHOST_NOT_FOUND)
MG_IMPORT_SEAM(L"ws2_32.dll", setsockopt, SOCKET_ERROR)
MG_IMPORT_SEAM(L"ws2_32.dll", shutdown, SOCKET_ERROR)
MG_IMPORT_SEAM(L"ws2_32.dll", socket, INVALID_SOCKET)

namespace windows_seams {
namespace {

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x7770001);
const HANDLE kEventLog = reinterpret_cast<HANDLE>(0x7770002);
const char kImpersonation = 0;

DWORD command = 0;
int boxes = 0;
DWORD now = 1000;

void installRegistry(std::uint16_t serverPort) {
  RegOpenKeyExASeam.replacement = [](HKEY root, LPCSTR name, DWORD options, REGSAM access, PHKEY key) -> LSTATUS {
    const LSTATUS status = RegOpenKeyExASeam.real(root, name, options, access, key);
    if (status == ERROR_SUCCESS) ledger::add(*key);
    return status;
  };
  RegOpenKeyExWSeam.replacement = [](HKEY root, LPCWSTR name, DWORD options, REGSAM access, PHKEY key) -> LSTATUS {
    const LSTATUS status = RegOpenKeyExWSeam.real(root, name, options, access, key);
    if (status == ERROR_SUCCESS) ledger::add(*key);
    return status;
  };
  RegCreateKeyExWSeam.replacement = [](HKEY root, LPCWSTR name, DWORD reserved, LPWSTR kind, DWORD options,
                                       REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY key,
                                       LPDWORD disposition) -> LSTATUS {
    const LSTATUS status =
        RegCreateKeyExWSeam.real(root, name, reserved, kind, options, access, security, key, disposition);
    if (status == ERROR_SUCCESS) ledger::add(*key);
    return status;
  };
  RegCloseKeySeam.watch = [](HKEY key) { ledger::remove(key); };
  RegCloseKeySeam.whenChosen = [](HKEY key) { RegCloseKeySeam.real(key); };
  RegGetValueWSeam.concerns = [](HKEY, LPCWSTR, LPCWSTR name, DWORD, LPDWORD, PVOID, LPDWORD) {
    return std::wcscmp(name, L"Port") != 0;
  };
  static DWORD port;
  port = serverPort;
  HKEY key = nullptr;
  RegCreateKeyExWSeam.real(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillfern\\Corvane", 0, nullptr, REG_OPTION_NON_VOLATILE,
                           KEY_ALL_ACCESS, nullptr, &key, nullptr);
  RegSetValueExWSeam.real(key, L"Port", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&port), sizeof port);
  RegCloseKeySeam.real(key);
}

void installFiles() {
  CreateFileASeam.replacement = [](LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                   DWORD disposition, DWORD flags, HANDLE like) -> HANDLE {
    const HANDLE file = CreateFileASeam.real(path, access, share, security, disposition, flags, like);
    if (file != INVALID_HANDLE_VALUE) ledger::add(file);
    return file;
  };
  CreateProcessASeam.replacement = [](LPCSTR application, LPSTR line, LPSECURITY_ATTRIBUTES process,
                                      LPSECURITY_ATTRIBUTES thread, WINBOOL inherit, DWORD flags, LPVOID environment,
                                      LPCSTR folder, LPSTARTUPINFOA start, LPPROCESS_INFORMATION out) -> WINBOOL {
    const WINBOOL made =
        CreateProcessASeam.real(application, line, process, thread, inherit, flags, environment, folder, start, out);
    if (made) ledger::add(out->hProcess);
    if (made) ledger::add(out->hThread);
    return made;
  };
  // Everybody closes handles and waits for them, the compiler's run time too: only what was opened above counts.
  CloseHandleSeam.concerns = [](HANDLE handle) { return ledger::has(handle); };
  CloseHandleSeam.watch = [](HANDLE handle) { ledger::remove(handle); };
  CloseHandleSeam.whenChosen = [](HANDLE handle) { CloseHandleSeam.real(handle); };
  // Waited all the same, so that what the process does comes always before what follows.
  WaitForSingleObjectSeam.whenChosen = [](HANDLE handle, DWORD milliseconds) {
    WaitForSingleObjectSeam.real(handle, milliseconds);
  };
  WaitForSingleObjectSeam.concerns = [](HANDLE handle, DWORD) { return ledger::has(handle); };
  fopenSeam.replacement = [](const char* path, const char* mode) -> std::FILE* {
    std::FILE* file = fopenSeam.real(path, mode);
    if (file != nullptr) ledger::add(file);
    return file;
  };
  fcloseSeam.concerns = [](std::FILE* file) { return ledger::has(file); };
  fcloseSeam.watch = [](std::FILE* file) { ledger::remove(file); };
  fcloseSeam.whenChosen = [](std::FILE* file) { fcloseSeam.real(file); };
  fflushSeam.concerns = [](std::FILE* file) { return ledger::has(file); };
  fwriteSeam.concerns = [](const void*, std::size_t, std::size_t, std::FILE* file) { return ledger::has(file); };
}

// The marks of living jobs, and the files of dead ones.
void installLeftovers() {
  CreateEventWSeam.concerns = [](LPSECURITY_ATTRIBUTES, WINBOOL, WINBOOL, LPCWSTR name) { return name != nullptr; };
  CreateEventWSeam.replacement = [](LPSECURITY_ATTRIBUTES security, WINBOOL manual, WINBOOL set,
                                    LPCWSTR name) -> HANDLE {
    const HANDLE made = CreateEventWSeam.real(security, manual, set, name);
    if (made != nullptr) ledger::add(made);
    return made;
  };
  OpenEventWSeam.replacement = [](DWORD access, WINBOOL inherit, LPCWSTR name) -> HANDLE {
    const HANDLE opened = OpenEventWSeam.real(access, inherit, name);
    if (opened != nullptr) ledger::add(opened);
    return opened;
  };
  FindFirstFileWSeam.concerns = [](LPCWSTR names, LPWIN32_FIND_DATAW) {
    return std::wcsstr(names, L"-*.*") != nullptr;
  };
  FindFirstFileWSeam.replacement = [](LPCWSTR names, LPWIN32_FIND_DATAW found) -> HANDLE {
    const HANDLE search = FindFirstFileWSeam.real(names, found);
    if (search != INVALID_HANDLE_VALUE) ledger::add(search);
    return search;
  };
  FindNextFileWSeam.concerns = [](HANDLE search, LPWIN32_FIND_DATAW) { return ledger::has(search); };
  FindCloseSeam.concerns = [](HANDLE search) { return ledger::has(search); };
  FindCloseSeam.watch = [](HANDLE search) { ledger::remove(search); };
  FindCloseSeam.whenChosen = [](HANDLE search) { FindCloseSeam.real(search); };
  CreateFileWSeam.concerns = [](LPCWSTR, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    return (access & DELETE) != 0;
  };
  CreateFileWSeam.replacement = [](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                   DWORD disposition, DWORD flags, HANDLE like) -> HANDLE {
    const HANDLE file = CreateFileWSeam.real(path, access, share, security, disposition, flags, like);
    if (file != INVALID_HANDLE_VALUE) ledger::add(file);
    return file;
  };
  GetFileInformationByHandleSeam.concerns = [](HANDLE file, LPBY_HANDLE_FILE_INFORMATION) { return ledger::has(file); };
  SetFileInformationByHandleSeam.concerns = [](HANDLE file, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD) {
    return ledger::has(file);
  };
}

const void* entry(SOCKET socket) {
  return reinterpret_cast<const void*>(socket);
}

// What was dialled is open until somebody ends it, which closing it does as well.
void installSockets() {
  socketSeam.replacement = [](int family, int type, int protocol) -> SOCKET {
    const SOCKET made = socketSeam.real(family, type, protocol);
    if (made != INVALID_SOCKET) ledger::add(entry(made));
    return made;
  };
  shutdownSeam.concerns = [](SOCKET socket, int) { return ledger::has(entry(socket)); };
  shutdownSeam.watch = [](SOCKET socket, int) { ledger::remove(entry(socket)); };
  shutdownSeam.whenChosen = [](SOCKET socket, int how) { shutdownSeam.real(socket, how); };
  closesocketSeam.concerns = [](SOCKET socket) { return ledger::has(entry(socket)); };
  closesocketSeam.watch = [](SOCKET socket) { ledger::remove(entry(socket)); };
  closesocketSeam.whenChosen = [](SOCKET socket) { closesocketSeam.real(socket); };
}

void installQueue() {
  OpenPrinterWSeam.replacement = [](LPWSTR, LPHANDLE out, LPPRINTER_DEFAULTSW) -> WINBOOL {
    ledger::add(kPrinter);
    *out = kPrinter;
    return TRUE;
  };
  ClosePrinterSeam.watch = [](HANDLE printer) { ledger::remove(printer); };
  ClosePrinterSeam.replacement = [](HANDLE printer) -> WINBOOL { return printer == kPrinter; };
  GetJobWSeam.replacement = [](HANDLE, DWORD, DWORD, LPBYTE buffer, DWORD, LPDWORD needed) -> WINBOOL {
    *needed = sizeof(JOB_INFO_2W);
    if (buffer == nullptr) return FALSE;
    std::memset(buffer, 0, sizeof(JOB_INFO_2W));
    return TRUE;
  };
  SetJobASeam.replacement = [](HANDLE printer, DWORD, DWORD, LPBYTE, DWORD wanted) -> WINBOOL {
    if (printer != kPrinter) return FALSE;
    command = wanted;
    return TRUE;
  };
}

void installEventLog() {
  RegisterEventSourceWSeam.replacement = [](LPCWSTR, LPCWSTR) -> HANDLE {
    ledger::add(kEventLog);
    return kEventLog;
  };
  ReportEventWSeam.replacement = [](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCWSTR*, LPVOID) -> WINBOOL {
    return TRUE;
  };
  DeregisterEventSourceSeam.watch = [](HANDLE log) { ledger::remove(log); };
  DeregisterEventSourceSeam.replacement = [](HANDLE log) -> WINBOOL { return log == kEventLog; };
}

void installSession() {
  GetModuleHandleWSeam.concerns = [](LPCWSTR name) {
    return name != nullptr && std::wcscmp(name, L"spoolss.dll") == 0;
  };
  GetModuleHandleWSeam.replacement = [](LPCWSTR name) -> HMODULE {
    static const HMODULE spooler = LoadLibraryW(name);
    return spooler;
  };
  GetProcAddressSeam.concerns = [](HMODULE, LPCSTR name) { return std::strcmp(name, "SpoolerInit") == 0; };
  RpcImpersonateClientSeam.replacement = [](RPC_BINDING_HANDLE) -> RPC_STATUS {
    ledger::add(&kImpersonation);
    return RPC_S_OK;
  };
  RpcRevertToSelfSeam.watch = [] { ledger::remove(&kImpersonation); };
  RpcRevertToSelfSeam.replacement = []() -> RPC_STATUS { return RPC_S_OK; };
  MessageBoxWSeam.replacement = [](HWND, LPCWSTR, LPCWSTR, UINT) -> int {
    ++boxes;
    return IDOK;
  };
  GetTickCountSeam.replacement = []() -> DWORD { return now; };
  // The run time's own locks give up the processor with a sleep of nothing, and a seam takes such a lock.
  SleepSeam.concerns = [](DWORD milliseconds) { return milliseconds > 0; };
  SleepSeam.replacement = [](DWORD) { SleepEx(1, FALSE); };
}

}  // namespace

void install(std::uint16_t serverPort) {
  installRegistry(serverPort);
  installFiles();
  installLeftovers();
  installSockets();
  installQueue();
  installEventLog();
  installSession();
}

DWORD lastQueueCommand() {
  return command;
}

void forgetCommand() {
  command = 0;
}

void convertQuickly() {
  CreateProcessASeam.replacement = [](LPCSTR, LPSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, WINBOOL, DWORD,
                                      LPVOID, LPCSTR, LPSTARTUPINFOA, LPPROCESS_INFORMATION out) -> WINBOOL {
    const WINBOOL made = quick_converter::convert(line, out);
    if (made) ledger::add(out->hProcess);
    if (made) ledger::add(out->hThread);
    return made;
  };
}

int messageBoxes() {
  return boxes;
}

void advance(DWORD milliseconds) {
  now += milliseconds;
}

}  // namespace windows_seams
