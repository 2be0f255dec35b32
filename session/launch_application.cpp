#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "corvane/out_request.h"
#include "session/port_monitor_server.h"

bool PortMonitorServer::LaunchApplication(const wchar_t* program, const wchar_t* arguments, const wchar_t* extra) {
  CS_TraceEntry trace(L"PortMonitorServer::LaunchApplication (program = %s)", program);
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::LaunchApplication()");
  bool result = true;
  operation.run([&] {
    if (program == nullptr || arguments == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kLaunchApplication);
    request.writeUTF(program);
    request.writeUTF(arguments);
    request.writeBoolean(extra != nullptr);
    if (extra != nullptr) request.writeUTF(extra);

    CS_InRequest reply(request);
    request.execute(reply, kReplyTimeout);
    result = reply.readBoolean();
    reply.release();
    request.release();
  });
  return result;
}
