#include "jobs/init_spooler.h"

#include "corvane/records/operation.h"
#include "session/port_monitor_server.h"

#include <rpc.h>

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
