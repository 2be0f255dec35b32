#include "jobs/spooler_calls.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "ports/port_records.h"
#include "session/port_monitor_server.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <new>
#include <rpc.h>
#include <vector>

namespace {

mg::QueuedPages pagesOf(const JOB_INFO_2W& info) {
  return {info.TotalPages, (info.Status & JOB_STATUS_SPOOLING) != 0};
}

using SpoolerInitFunction = DWORD(WINAPI*)();

// The thread acts as the calling client until the end of the scope.
class Impersonation {
 public:
  explicit Impersonation(Operation& operation) {
    const RPC_STATUS status = RpcImpersonateClient(nullptr);
    if (status != RPC_S_OK) {
      operation.fail(corvane::kLevelFailure, L"Failed to impersonate client. error: %d", status);
    }
  }
  ~Impersonation() { RpcRevertToSelf(); }
  Impersonation(const Impersonation&) = delete;
  Impersonation& operator=(const Impersonation&) = delete;
};

}  // namespace

DWORD InitSpooler() {
  CS_TraceEntry trace(L"InitSpooler()");
  Operation operation(L"Stack Trace: MgPrintMon - InitSpooler()");
  DWORD result = 0;
  operation.run([&] {
    const CS_RCPtr<PortMonitorServer> server = PortMonitorServer::getInstance();
    const HMODULE spooler = GetModuleHandleW(L"spoolss.dll");
    if (spooler == nullptr) {
      operation.fail(corvane::kLevelFailure, L"Failed to find the module handle for SpoolSS.dll. error: %d",
                     GetLastError());
    }
    const FARPROC found = GetProcAddress(spooler, "SpoolerInit");
    if (found == nullptr) {
      operation.fail(corvane::kLevelFailure, L"Failed to find the spooler initialization function. error: %d",
                     GetLastError());
    }
    const Impersonation impersonation(operation);
    result = reinterpret_cast<SpoolerInitFunction>(reinterpret_cast<void*>(found))();
  });
  return result;
}

int GetNumCopies(const wchar_t* printerName, DWORD jobId, mg::QueuedPages* pages) {
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
    if (pages != nullptr) *pages = pagesOf(*info);
  });
  return copies;
}

namespace mg {

QueuedPages pagesInQueue(const wchar_t* printerName, DWORD jobId) noexcept try {
  PrinterHandle printer;
  if (!OpenPrinterW(const_cast<wchar_t*>(printerName), printer.receive(), nullptr)) return {};
  DWORD needed = 0;
  GetJobW(printer.get(), jobId, 2, nullptr, 0, &needed);
  std::vector<BYTE> buffer(needed);
  if (needed < sizeof(JOB_INFO_2W) || !GetJobW(printer.get(), jobId, 2, buffer.data(), needed, &needed)) return {};
  return pagesOf(*reinterpret_cast<const JOB_INFO_2W*>(buffer.data()));
} catch (const std::bad_alloc&) {
  return {};
}

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
