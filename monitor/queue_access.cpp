#include "monitor/queue_access.h"

#include "corvane/operation.h"
#include "ports/tag_port.h"
#include "util/win_handle.h"

#include <winspool.h>

namespace mg {

HANDLE openQueue(tagPort& port) {
  PRINTER_DEFAULTSW defaults{nullptr, nullptr, PRINTER_ALL_ACCESS};
  HANDLE printer = nullptr;
  return OpenPrinterW(port.printerName, &printer, &defaults) ? printer : nullptr;
}

bool controlJob(HANDLE printer, const tagPort& port, DWORD command) {
  return SetJobA(printer, port.jobId, 0, nullptr, command) != FALSE;
}

void deleteQueuedJob(Operation& operation, tagPort& port, const wchar_t* documentName) {
  // CloseHandle, not ClosePrinter, ends this access: the clean-up's contract with the spooler names that call.
  const PrinterAsObjectHandle printer(openQueue(port));
  if (!printer) operation.noteAnew(corvane::kLevelCleanupNote, L"Failed to open the printer");
  // Tried without a printer, too: the spooler's refusal is what is then recorded.
  if (!controlJob(printer.get(), port, JOB_CONTROL_DELETE)) {
    operation.note(corvane::kLevelCleanupNote, L"Failed to delete print job");
  } else if (documentName != nullptr) {
    operation.note(corvane::kLevelCleanupNote, L"Deleted print job %s", documentName);
  } else {
    operation.note(corvane::kLevelCleanupNote, L"Deleted print job");
  }
}

}  // namespace mg
