#include "monitor/queue_access.h"

#include "corvane/records/operation.h"
#include "ports/tag_port.h"
#include "util/win_handle.h"

#include <winspool.h>

namespace mg {

namespace {

DWORD lastError() {
  const DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? error : ERROR_GEN_FAILURE;
}

// Opens the port's local printer with all rights, as needed to act on a job in its queue; null when that fails.
HANDLE openQueue(tagPort& port, DWORD& error) {
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ALL_ACCESS};
  HANDLE printer = nullptr;
  if (OpenPrinterW(port.printerName, &printer, &defaults)) return printer;
  error = lastError();
  return nullptr;
}

// Acts on the port's job in the queue of an open printer. Tried without a printer, too: the spooler's refusal is what
// is then recorded. An error that is there already stays.
bool controlJob(HANDLE printer, const tagPort& port, DWORD command, DWORD& error) {
  if (SetJobA(printer, port.jobId, 0, nullptr, command)) return true;
  if (error == ERROR_SUCCESS) error = lastError();
  return false;
}

}  // namespace

DWORD deleteQueuedJob(Operation& operation, tagPort& port, const wchar_t* documentName) {
  // CloseHandle, not ClosePrinter: the clean-up's contract with the spooler names that call. It does not end the
  // access, because a printer's handle is not a kernel handle: the spooler keeps it until the process ends.
  DWORD error = ERROR_SUCCESS;
  const PrinterAsObjectHandle printer(openQueue(port, error));
  if (!printer) operation.noteAnew(corvane::kLevelCleanupNote, L"Failed to open the printer");
  if (!controlJob(printer.get(), port, JOB_CONTROL_DELETE, error)) {
    operation.note(corvane::kLevelCleanupNote, L"Failed to delete print job");
    return error;
  }
  if (documentName != nullptr) {
    operation.note(corvane::kLevelCleanupNote, L"Deleted print job %s", documentName);
  } else {
    operation.note(corvane::kLevelCleanupNote, L"Deleted print job");
  }
  return ERROR_SUCCESS;
}

DWORD markQueuedJobSent(Operation& operation, tagPort& port, HANDLE& printer) {
  DWORD error = ERROR_SUCCESS;
  printer = openQueue(port, error);
  if (printer == nullptr) operation.note(corvane::kLevelCleanupNote, L"failed to access the printer queue");
  if (controlJob(printer, port, JOB_CONTROL_SENT_TO_PRINTER, error)) return ERROR_SUCCESS;
  operation.note(corvane::kLevelCleanupNote, L"failed to complete print job");
  return error;
}

}  // namespace mg
