#include "jobs/spooler_calls.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "session/port_monitor_server.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <rpc.h>
#include <vector>

namespace {

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
