#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"
#include "jobs/spooler_calls.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "ports/port_list.h"
#include "util/mutex.h"
#include "util/utl_string.h"

#include <array>
#include <cwchar>
#include <iterator>

namespace mg {
namespace {

// What Windows does not tell is taken for the ordinary case.
bool somebodyCanSeeIt() {
  DWORD session = 0;
  if (ProcessIdToSessionId(GetCurrentProcessId(), &session) && session == 0) return false;
  USEROBJECTFLAGS flags{};
  return !GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, nullptr) ||
         (flags.dwFlags & WSF_VISIBLE) != 0;
}

}  // namespace

void showMessageBox(HWND owner, const wchar_t* text, const wchar_t* title) noexcept {
  if (somebodyCanSeeIt()) {
    MessageBoxW(owner, text, title, MB_OK);
    return;
  }
  wchar_t line[768];
  std::swprintf(line, std::size(line), L"%ls: %ls (not shown, because this process has no desktop that anybody sees)",
                title, text);
  corvane::LocalMonitor::instance().writeLine(L"message box:", line);
}

}  // namespace mg

BOOL WINAPI MGEnumPorts(HANDLE, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
                        LPDWORD pcReturned) {
  CS_TraceEntry trace(L"MGEnumPorts (pName = %s)", pName);
  Operation operation(L"Stack Trace: MgPrintMon - MGEnumPorts()");
  BOOL result = FALSE;
  DWORD lastError = 0;
  operation.run([&] {
    result = static_cast<BOOL>(mg::portList().EnumPorts(pName, Level, pPorts, cbBuf, pcbNeeded, pcReturned));
    lastError = GetLastError();
  });
  if (!operation.succeeded()) SetLastError(lastError);
  return result;
}

BOOL WINAPI MGOpenPort(HANDLE, LPWSTR pName, PHANDLE pHandle) {
  CS_TraceEntry trace(L"MGOpenPort (pName = %s)", pName);
  Operation operation(L"Stack Trace: MgPrintMon - MGOpenPort()");
  operation.run([&] {
    CPortList& list = mg::portList();
    if (pName == nullptr || pHandle == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    const mg::HeldPort port(list, pName);
    if (!port) operation.fail(corvane::kLevelFailure, L"MgPrintMon - MGOpenPort: port not found");
    *pHandle = port.get();
    port->flags |= kPortIsOpen;
    PortRecords::instance().handleOpened(*port.get());
  });
  return operation.succeeded() ? TRUE : FALSE;
}

BOOL WINAPI MGClosePort(HANDLE handle) {
  CS_TraceEntry trace(L"MGClosePort ()");
  Operation operation(L"Stack Trace: MgPrintMon - MGClosePort()");
  mg::PortCall call(mg::endJobOfDeletedPort);
  operation.run([&] {
    tagPort& port = call.enter(handle);
    const Synchronized guard(*port.lock);
    port.flags &= ~kPortIsOpen;
  });
  // Also that of a port which was deleted meanwhile: only then may its address be another port's.
  PortRecords::instance().handleClosed(handle);
  return operation.succeeded() ? TRUE : FALSE;
}

namespace {

void showRemoved(HWND owner, const wchar_t* portName) {
  std::array<wchar_t, 512> text{};
  // One less than fits: a text that is cut does not come with its end.
  _snwprintf(text.data(), text.size() - 1, L"Port \"%s\" successfully removed.", portName);
  mg::showMessageBox(owner, text.data(), L"Port removed");
}

}  // namespace

BOOL WINAPI MGDeletePort(HANDLE, LPWSTR pName, HWND hWnd, LPWSTR pPortName) {
  CS_TraceEntry trace(L"MGDeletePort (pName = %s)", pName);
  Operation operation(L"Stack Trace: MgPrintMon - MGDeletePort()");
  BOOL result = FALSE;
  operation.run([&] {
    result = static_cast<BOOL>(mg::portList().DeletePort(pPortName, mg::endJobOfDeletedPort));
    if (result) {
      showRemoved(hWnd, pPortName);
      return;
    }
    mg::showMessageBox(hWnd, L"An error has occurred\n\nCouldn't remove the port.", L"Error");
    // The name recorded is the server's, on purpose: the port's name is in the record of the port list.
    operation.fail(corvane::kLevelFailure, L"failed to remove port %s", pName);
  });
  return result;
}

DWORD WINAPI MGXcvDataPort(HANDLE, LPCWSTR pszDataName, PBYTE pInputData, DWORD, PBYTE, DWORD, PDWORD) {
  const auto* input = reinterpret_cast<const wchar_t*>(pInputData);
  CS_TraceEntry trace(L"MGXcvDataPort (pInputData = %s)", input);
  Operation operation(L"Stack Trace: MgPrintMon - MGXcvDataPort()");
  DWORD result = ERROR_INVALID_DATA;
  operation.run([&] {
    if (pszDataName == nullptr || input == nullptr) {
      result = ERROR_INVALID_PARAMETER;
      throw CS_Exception(corvane::kBadArgument, nullptr);
    }
    const UTL_String command(pszDataName);
    // What the port list makes of it is in its own records; the caller learns only that the command was understood.
    if (command == UTL_String(L"AddPort")) {
      mg::portList().AddNewPort(input);
      result = ERROR_SUCCESS;
    }
    if (command == UTL_String(L"DeletePort")) {
      mg::portList().DeletePort(input, mg::endJobOfDeletedPort);
      result = ERROR_SUCCESS;
    }
    if (command == UTL_String(L"InitSpooler")) {
      InitSpooler();
      result = ERROR_SUCCESS;
    }
    if (command == UTL_String(L"InitPortMonitor")) result = ERROR_SUCCESS;
  });
  return result;
}

namespace {

BOOL sayWhyNot(HWND owner, const wchar_t* text) {
  mg::showMessageBox(owner, text, L"Client Printer Port");
  return TRUE;
}

}  // namespace

BOOL WINAPI MGAddPort(HANDLE, LPWSTR, HWND hWnd, LPWSTR) {
  return sayWhyNot(hWnd, L"The specified action is not supported.");
}

BOOL WINAPI MGAddPortEx(HANDLE, LPWSTR, DWORD, LPBYTE, LPWSTR) {
  return sayWhyNot(nullptr, L"The specified action is not supported.");
}

BOOL WINAPI MGConfigurePort(HANDLE, LPWSTR, HWND hWnd, LPWSTR) {
  return sayWhyNot(hWnd, L"This port cannot be configured.");
}

BOOL WINAPI MGReadPort(HANDLE, LPBYTE, DWORD, LPDWORD) {
  CS_TraceEntry trace(L"MGReadPort");
  return FALSE;
}

BOOL WINAPI MGSetPortTimeOuts(HANDLE, LPCOMMTIMEOUTS, DWORD) {
  CS_TraceEntry trace(L"MGSetPortTimeOuts");
  return FALSE;
}

BOOL WINAPI MGXcvOpenPort(HANDLE, LPCWSTR, ACCESS_MASK, PHANDLE) {
  CS_TraceEntry trace(L"MGXcvOpenPort");
  return TRUE;
}

BOOL WINAPI MGXcvClosePort(HANDLE) {
  CS_TraceEntry trace(L"MGXcvClosePort");
  return TRUE;
}

VOID WINAPI MGShutdown(HANDLE) {
  CS_TraceEntry trace(L"MGShutdown");
}
