#include "jobs/num_copies.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <vector>

int GetNumCopies(const wchar_t* printerName, DWORD jobId) {
  CS_TraceEntry trace(L"GetNumCopies (printerName = %s, jobId = %d)", printerName, jobId);
  Operation operation(L"Stack Trace: MgPrintMon - GetNumCopies()");
  int copies = 1;
  operation.run([&] {
    if (printerName == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    mg::PrinterHandle printer;
    // The spooler's interface takes the name without const and does not write to it.
    if (!OpenPrinterW(const_cast<wchar_t*>(printerName), printer.receive(), nullptr)) {
      operation.fail(corvane::kLevelCleanupNote, L"Failed to open printer: %s", printerName);
    }
    DWORD needed = 0;
    GetJobW(printer.get(), jobId, 2, nullptr, 0, &needed);
    std::vector<BYTE> buffer(needed);
    if (needed == 0 || !GetJobW(printer.get(), jobId, 2, buffer.data(), needed, &needed)) {
      operation.fail(corvane::kLevelCleanupNote, L"Failed to get print job info: %s, job #%d", printerName, jobId);
    }
    const auto* info = reinterpret_cast<const JOB_INFO_2W*>(buffer.data());
    if (info->pDevMode != nullptr && info->pDevMode->dmCopies > 0) copies = info->pDevMode->dmCopies;
  });
  return copies;
}
