#include "corvane/component_server.h"
#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "corvane/out_request.h"
#include "session/port_monitor_server.h"

bool PortMonitorServer::AttachPrintJobToSession(const wchar_t* printerName, CS_Component* bridge) {
  CS_TraceEntry trace(L"PortMonitorServer::AttachPrintJobToSession (printerName = %s)", printerName);
  if (printerName == nullptr || *printerName == L'\0') return false;
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::AttachPrintJobToSession()");
  bool result = false;
  operation.run([&] {
    if (bridge == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kAttachPrintJobToSession);
    request.writeUTF(printerName);
    request.writeInt(static_cast<int>(GetCurrentProcessId()));
    request.writeInt(static_cast<int>(bridge->getIdentifier()));
    CS_ClassVersionMap ours;
    CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(ours);
    ours >> request.getChannel();

    CS_InRequest reply(request);
    request.execute(reply, kReplyTimeout);
    const bool attached = reply.readBoolean();
    CS_ClassVersionMap theirs;
    if (attached) theirs << reply.getChannel();
    reply.release();
    request.release();
    result = attached;

    if (!attached) {
      operation.note(corvane::kLevelFailure, L"Failed to attach print job to session for %s", printerName);
    } else if (!bridge->setVersionsOfClassesInPeerProcess(theirs, CS_Component::kSetVersionsOnOwnPeer)) {
      operation.note(corvane::kLevelFailure, L"Failed to set peer process versions.");
    }
  });
  return result;
}
