#pragma once

#include <windows.h>
#include <winspool.h>
// Needs the types of winspool.h.
#include <winsplp.h>

// The operations that the spooler finds in the monitor table. It calls them from its own threads, several at once; the
// calls of one job come one after another. No exception leaves them. A port handle is the address of the port's
// tagPort record, owned by the port list; monitor handles are ignored.

BOOL WINAPI MGEnumPorts(HANDLE monitor, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
                        LPDWORD pcReturned);
// Marks the port as open. FALSE, with *pHandle untouched, for a port that is not in the list.
BOOL WINAPI MGOpenPort(HANDLE monitor, LPWSTR pName, PHANDLE pHandle);
// Takes the mark back; a job that was not ended stays on the port.
BOOL WINAPI MGClosePort(HANDLE handle);
// Shows a message box with the outcome, owned by hWnd, and waits until the user closes it; where there is none, the
// outcome is in the log (mg::showMessageBox below).
BOOL WINAPI MGDeletePort(HANDLE monitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);

// Announces a job to the print client of the session that owns the printer. pDocInfo is a DOC_INFO_1 whatever the level
// says. A printer name of 260 characters or more is refused as a bad argument: the port's field could not hold it with
// its end, and a name that was cut could be another printer's. On failure the job is deleted from the spooler's queue.
BOOL WINAPI MGStartDocPort(HANDLE handle, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);
// Sends or collects a piece of the job; all of it or, with *pcbWritten 0 and the job deleted from the queue, nothing.
BOOL WINAPI MGWritePort(HANDLE handle, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
// Converts the job where it has to be, ends it and marks it as sent. TRUE exactly when the client answered that it has
// taken the whole job.
BOOL WINAPI MGEndDocPort(HANDLE handle);

// The ports are configured by the commands of MGXcvDataPort, not in dialogs: these show a message box that says so.
BOOL WINAPI MGAddPort(HANDLE monitor, LPWSTR pName, HWND hWnd, LPWSTR pMonitorName);
BOOL WINAPI MGAddPortEx(HANDLE monitor, LPWSTR pName, DWORD Level, LPBYTE lpBuffer, LPWSTR lpMonitorName);
BOOL WINAPI MGConfigurePort(HANDLE monitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);

// Not offered: both answer FALSE and write nothing.
BOOL WINAPI MGReadPort(HANDLE port, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
BOOL WINAPI MGSetPortTimeOuts(HANDLE port, LPCOMMTIMEOUTS lpCTO, DWORD reserved);

// The configuration channel has no state: opening it gives no handle and closing it frees nothing.
BOOL WINAPI MGXcvOpenPort(HANDLE monitor, LPCWSTR pszObject, ACCESS_MASK GrantedAccess, PHANDLE phXcv);
// "AddPort" and "DeletePort" with the port's name as terminated wide text, "InitSpooler" and "InitPortMonitor" with any
// input: 0 whatever the list of ports or the spooler made of the command. ERROR_INVALID_DATA (13) for another command,
// and for "AddPort" when the registry refuses, which the list passes on; ERROR_INVALID_PARAMETER without a
// command or input. The output arguments are neither read nor written.
DWORD WINAPI MGXcvDataPort(HANDLE hXcv, LPCWSTR pszDataName, PBYTE pInputData, DWORD cbInputData, PBYTE pOutputData,
                           DWORD cbOutputData, PDWORD pcbOutputNeeded);
BOOL WINAPI MGXcvClosePort(HANDLE hXcv);

// Frees nothing: entries may still be called until the module is unloaded.
VOID WINAPI MGShutdown(HANDLE monitor);

// The operations that the spooler may call, constant and alive as long as the module. Its size tells the spooler to
// read exactly 19 slots.
extern const MONITOR2 g_monitorTable;

namespace mg {

// Shows a message box with an OK button and waits until it is closed. Where nobody could close it - in session 0, where
// services run, and on a window station that is not visible - it would block the spooler's thread for ever: there the
// text goes to the module's log instead. Any thread may call.
void showMessageBox(HWND owner, const wchar_t* text, const wchar_t* title) noexcept;

}  // namespace mg
