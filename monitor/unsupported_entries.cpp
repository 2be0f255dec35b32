#include "corvane/trace_entry.h"
#include "monitor/entries.h"
#include "monitor/message_box.h"

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
