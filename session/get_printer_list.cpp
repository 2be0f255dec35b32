#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "corvane/out_request.h"
#include "session/port_monitor_server.h"

namespace {

void readNames(CS_InRequest& reply, TObjectMap<UTL_String, void*>& printers) {
  while (reply.readBoolean()) {
    const wchar_t* name = reply.readUTF();
    if (name == nullptr || *name == L'\0') continue;
    if (!printers.insert(UTL_String(name), PortMonitorServer::kPresent)) {
      throw CS_Exception(corvane::kAllocationFailed, nullptr);
    }
  }
}

}  // namespace

bool PortMonitorServer::GetPrinterList(unsigned int sessionId, TObjectMap<UTL_String, void*>* printers) {
  CS_TraceEntry trace(L"PortMonitorServer::GetPrinterList (sessionId = %d)", sessionId);
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::GetPrinterList()");
  bool result = true;
  operation.run([&] {
    if (sessionId == 0 || printers == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kGetPrinterList);
    request.writeInt(static_cast<int>(sessionId));

    CS_InRequest reply(request);
    request.execute(reply, kReplyTimeout);
    result = reply.readBoolean();
    if (result) readNames(reply, *printers);
    reply.release();
    request.release();
  });
  return result;
}
